// Looks at what is pending before it is committed.

import { h, button, uniqueId } from "../dom.js";
import { icon } from "../icons.js";
import { errorsOf } from "../checks.js";
import { Problem } from "../api.js";
import { moveOf } from "../moving.js";
import { commit, pendingValues, plan, secretsWait } from "../pending.js";
import { discard, setErrors, state, waiting } from "../state.js";
import { plural } from "../words.js";
import { actionList, changeTable, fileDiffs } from "./changes.js";
import { dialog } from "./dialog.js";
import { leave, prepareToLeave } from "./leave.js";
import { toast, told } from "./toast.js";

const CONFIRM_AFTER = 120; // s

function errorList(errors) {
    return h("ul", { class: "error-list", role: "alert" }, [...errors].map(([name, detail]) => h("li", {}, icon("warning"), h("span", {}, h("code", {}, name), ` ${detail}`))));
}

function moveNotice(move) {
    return h("div", { class: "notice strong", role: "alert" }, icon("warning"), h("div", {},
        h("p", {}, h("b", {}, "This changes the address over which you came.")),
        h("p", {}, move.to ? ["The appliance will be at ", h("a", { href: move.to }, move.to), ". You will be led there; log in and confirm in time, else all is undone and it is back here."]
            : "Nobody knows the new address yet. Find the appliance in the network, log in there and confirm in time, else all is undone and it is back here.")));
}

function options(move) {
    const id = uniqueId("option");
    const message = h("input", { type: "text", id: `${id}-text`, maxlength: "300", class: "wide", placeholder: "Why, for the history (may be empty)" });
    const seconds = h("input", { type: "number", id: `${id}-seconds`, min: "10", max: "86400", value: String(CONFIRM_AFTER), class: "number" });
    const wanted = h("input", { type: "checkbox", id: `${id}-confirm`, change: () => (seconds.disabled = !wanted.checked) });
    wanted.checked = true;
    wanted.disabled = Boolean(move);
    return {
        element: h("div", { class: "commit-options" },
            h("label", { for: message.id }, "Note"), message,
            h("div", { class: "confirm-option" }, wanted, h("label", { for: wanted.id }, "Undo it by itself unless I confirm within"), seconds, h("label", { for: seconds.id }, "seconds"))),
        read: () => ({ message: message.value.trim(), confirm: wanted.checked ? Math.min(86400, Math.max(10, Number(seconds.value) || CONFIRM_AFTER)) : undefined }),
    };
}

function othersNote() {
    const { others } = waiting();
    return others.length === 0 ? null : h("p", { class: "notice" }, icon("person"),
        h("span", {}, `${plural(others.length, "change")} of somebody else ${others.length === 1 ? "waits" : "wait"}, too. ${others.length === 1 ? "It stays" : "They stay"} as ${others.length === 1 ? "it is" : "they are"}: this commit does not take ${others.length === 1 ? "it" : "them"}.`));
}

function outcomeOf(answer) {
    const undone = answer.commit?.state === "undone" || answer.end === "undone";
    return { undone, errors: errorsOf(answer) };
}

function showFailure(shown, answer) {
    shown.element.querySelector(".commit-options")?.remove();
    shown.body.replaceChildren(
        h("p", { class: "notice strong" }, icon("warning"), h("span", {}, "It failed, and everything is as it was before.")),
        errorList(errorsOf(answer)), answer.actions?.length > 0 ? actionList(answer.actions) : "");
    shown.foot.replaceChildren(button("Close", () => shown.close()));
}

async function send(shown, given, move, frame) {
    const { read } = given;
    const values = pendingValues();
    const answer = await commit(read());
    const { undone } = outcomeOf(answer);
    if (undone)
        return showFailure(shown, answer);
    shown.close(true);
    if (move)
        leave(move, frame, read().confirm);
    else if (!read().confirm)
        toast(`Committed ${plural(Object.keys(values).length, "change")}.`);
}

function refused(shown, error) {
    if (error instanceof Problem && error.body.commit?.state === "undone")
        return showFailure(shown, error.body);
    if (error instanceof Problem && error.errors.size > 0)
        setErrors(new Map([...error.errors].filter(([name]) => state.drafts.has(name))));
    const list = error instanceof Problem && error.errors.size > 0 ? errorList(error.errors) : h("p", { class: "form-error", role: "alert" }, told(error));
    shown.body.querySelector(".refusal")?.remove();
    shown.body.prepend(h("div", { class: "refusal" }, h("p", {}, "The appliance refused this; nothing has changed."), list));
    shown.body.scrollTop = 0;
}

function refusal(errors) {
    return h("div", { class: "refusal" }, h("p", {}, "The appliance refuses these; mend them first:"), errorList(errors));
}

function sections(answer, errors, secrets) {
    const taken = (name) => state.drafts.has(name) ? h("button", { type: "button", class: "link", click: (event) => {
        discard([name]);
        event.target.closest("li").remove();
    } }, "Leave out") : h("span");
    if (errors.size > 0 && (answer.changes ?? []).length === 0)
        return [refusal(errors)];
    return [
        errors.size > 0 && refusal(errors),
        h("h3", {}, plural(answer.changes?.length ?? 0, "change")),
        changeTable(answer.changes ?? [], taken),
        secrets.length > 0 && h("p", { class: "help" }, `And ${plural(secrets.length, "secret")} that ${secrets.length === 1 ? "was" : "were"} set before.`),
        answer.files?.length > 0 && [h("h3", {}, `Files that change (${answer.files.length})`), fileDiffs(answer.files)],
        answer.actions?.length > 0 ? [h("h3", {}, "Commands that run"), actionList(answer.actions)] : h("p", { class: "help" }, "No command runs for it."),
    ];
}

async function planned() {
    try {
        return await plan();
    } catch (error) {
        if (error instanceof Problem && error.errors.size > 0)
            return { changes: [], errors: [...error.errors].map(([name, detail]) => ({ name, detail })) };
        throw error;
    }
}

/** The dialog with plan and commit. Resolves to true when it was committed. */
export async function review() {
    const shown = dialog("Review changes", { wide: true, content: [h("p", { class: "loading" }, "Asking the appliance what would happen …")] });
    let answer;
    try {
        answer = await planned();
    } catch (error) {
        shown.body.replaceChildren(h("p", { class: "form-error", role: "alert" }, told(error)));
        shown.foot.replaceChildren(button("Back to editing", () => shown.close()));
        return shown.closed;
    }
    const errors = errorsOf(answer);
    const move = moveOf(pendingValues());
    const frame = move?.to ? prepareToLeave() : null;
    const given = options(move);
    const go = button("Commit", async () => {
        go.disabled = true;
        go.classList.add("is-busy");
        try {
            await send(shown, given, move, frame);
        } catch (error) {
            refused(shown, error);
        } finally {
            go.disabled = false;
            go.classList.remove("is-busy");
        }
    }, { kind: "primary", symbol: icon("check") });
    go.disabled = errors.size > 0;
    shown.body.replaceChildren(...[move && moveNotice(move), othersNote(), sections(answer, errors, secretsWait())].flat(Infinity).filter(Boolean));
    if (!go.disabled)
        shown.foot.before(given.element);
    shown.foot.replaceChildren(button("Back to editing", () => shown.close()), go);
    (go.disabled ? shown.foot.firstElementChild : go).focus();
    return shown.closed;
}
