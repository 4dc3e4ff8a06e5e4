// Who changed what, when, and the way back.

import { api } from "../api.js";
import { changeTable, actionList } from "../components/changes.js";
import { formDialog } from "../components/dialog.js";
import { toast } from "../components/toast.js";
import { button, h, uniqueId } from "../dom.js";
import { icon } from "../icons.js";
import { state } from "../state.js";
import { refreshMarks } from "../sync.js";
import { moment, plural } from "../words.js";

const AT_ONCE = 30;
const SHOWN_CHANGES = 6;
const CONFIRM_AFTER = 120; // s

const TONES = [[/^(done|confirmed)/, "good"], [/^(awaits|awaiting)/, "modified"], [/^(undone|failed)/, "bad"]];

function outcome(entry) {
    const tone = TONES.find(([pattern]) => pattern.test(entry.state))?.[1] ?? "";
    return h("span", { class: `chip ${tone}` }, h("span", {}, entry.state));
}

function rollbackDialog(entry) {
    const id = uniqueId("seconds");
    const seconds = h("input", { type: "number", id, min: "0", max: "86400", value: String(CONFIRM_AFTER), class: "number" });
    return formDialog(`Back to before entry ${entry.number}?`, [
        h("p", {}, "This entry and all later ones are undone: the values from before it come back, are saved and applied. It becomes an entry of the history itself. Passwords are not in the history and stay."),
        h("div", { class: "form-line" }, h("label", { for: id }, "Undo that again unless I confirm within so many seconds (0: do not ask)"), seconds)],
    "Roll back", async () => {
        const answer = await api.rollback({ number: entry.number, ...(Number(seconds.value) > 0 && { confirm: Number(seconds.value) }) });
        await refreshMarks();
        toast(`Rolled back: ${plural(answer?.changes?.length ?? 0, "change")}.`);
    });
}

function changesOf(entry) {
    const changes = entry.changes ?? [];
    const place = h("div", {}, changes.length > 0 && changeTable(changes.slice(0, SHOWN_CHANGES)));
    const rest = changes.length - SHOWN_CHANGES;
    if (rest > 0)
        place.append(button(`Show ${rest} more`, () => place.replaceChildren(changeTable(changes)), { kind: "quiet small" }));
    if (entry.more_changes > 0)
        place.append(h("p", { class: "help" }, `${plural(entry.more_changes, "more value")} ${entry.more_changes === 1 ? "was" : "were"} not kept.`));
    return place;
}

function card(entry) {
    const browser = /^qvweb\/(.+)/.exec(entry.client ?? "");
    const source = browser ? `web, from ${browser[1]}` : [entry.source, entry.client].filter(Boolean).join(", ");
    const may = (entry.changes ?? []).some(({ name }) => state.apis.get(name)?.writable);
    return h("article", { class: "card entry", "data-entry": String(entry.number) },
        h("div", { class: "entry-head" }, h("span", { class: "entry-number" }, String(entry.number)),
            h("span", { class: "entry-who" }, h("b", {}, entry.user), ` · ${entry.command || "change"}`, h("br"), h("span", { class: "help" }, h("time", { datetime: entry.time }, moment(entry.time)), source ? ` · ${source}` : "")),
            outcome(entry), may && button("Roll back to before this", () => rollbackDialog(entry), { kind: "small", symbol: icon("undo") })),
        entry.text && h("p", { class: "entry-text" }, `“${entry.text}”`),
        changesOf(entry),
        entry.actions?.length > 0 && h("details", {}, h("summary", { class: "help" }, plural(entry.actions.length, "command")), actionList(entry.actions)));
}

export async function historyPage(place, id, current) {
    const list = h("div", { class: "timeline" });
    const more = button("Show more", () => load(limit + AT_ONCE), { kind: "quiet" });
    let limit = 0;
    async function load(count) {
        const { entries } = await api.history({ limit: count });
        limit = count;
        list.replaceChildren(...(entries.length > 0 ? entries.map(card) : [h("p", { class: "empty" }, "Nothing was changed yet.")]));
        more.hidden = entries.length < count;
    }
    await load(AT_ONCE);
    if (!current())
        return () => {};
    place.replaceChildren(h("div", { class: "page-main" }, h("h1", { tabindex: "-1" }, "History"),
        h("p", { class: "help" }, "Every save, apply and commit, the newest first."), list, more));
    let timer = 0;
    const stop = state.on("event", (event) => {
        if (!["commit", "confirm", "rollback", "save", "apply", "user", "profile", "preset", "factory_reset"].includes(event))
            return;
        clearTimeout(timer);
        timer = setTimeout(() => load(limit).catch(() => {}), 200);
    });
    return () => {
        clearTimeout(timer);
        stop();
    };
}
