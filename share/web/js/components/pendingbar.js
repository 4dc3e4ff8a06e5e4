// The bar at the foot of the page: what is pending, and what can be done about it.

import { button, h } from "../dom.js";
import { setOnly } from "../pending.js";
import { discard, setErrors, state, waiting } from "../state.js";
import { plural } from "../words.js";
import { Problem } from "../api.js";
import { ask } from "./dialog.js";
import { review } from "./review.js";
import { takeBack } from "./takeback.js";
import { toast, told } from "./toast.js";

async function keep() {
    try {
        await setOnly();
        toast("Set. It is not in the files yet: commit it, or take it back.");
    } catch (error) {
        if (error instanceof Problem && error.errors.size > 0)
            setErrors(error.errors);
        toast(told(error), "bad");
    }
}

async function giveUp() {
    const { own } = waiting();
    const drafts = state.drafts.size;
    const text = [drafts > 0 && `${plural(drafts, "change")} made in this browser`, own.length > 0 && `${plural(own.length, "change")} set before`].filter(Boolean).join(" and ");
    if (!(await ask("Discard?", `${text} will be lost.`, "Discard", { kind: "danger" })))
        return;
    discard();
    if (own.length > 0)
        await takeBack(own);
}

function part(kind, text) {
    return h("span", { class: `pending-part ${kind}` }, text);
}

/** The bar; it hides itself while nothing is pending. */
export function pendingBar() {
    const parts = h("div", { class: "pending-parts", role: "status" });
    const discardButton = button("Discard", giveUp, { kind: "quiet" });
    const setButton = button("Set only", keep, { kind: "quiet", title: "Keeps it in the daemon: not in the files, not applied" });
    const reviewButton = button("Review and commit", review, { kind: "primary", title: "Ctrl+Enter" });
    const element = h("aside", { class: "pending-bar", "aria-label": "Pending changes", hidden: true }, parts, h("div", { class: "pending-actions" }, discardButton, setButton, reviewButton));
    function update() {
        const { own, others } = waiting();
        const edited = state.drafts.size;
        const wrong = [...state.errors.keys()].filter((name) => state.drafts.has(name)).length;
        element.hidden = edited + own.length + others.length === 0;
        parts.replaceChildren(...[
            edited > 0 && part("edited", `${edited} edited here`), own.length > 0 && part("modified", `${own.length} set, not committed`),
            wrong > 0 && part("wrong", `${wrong} refused`), others.length > 0 && part("others", `${others.length} by someone else`)].filter(Boolean));
        const mine = edited + own.length > 0;
        discardButton.hidden = reviewButton.hidden = !mine;
        setButton.hidden = edited === 0;
        document.body.classList.toggle("has-pending", !element.hidden);
    }
    state.on("pending", update);
    state.on("errors", update);
    update();
    return element;
}

/** Whether there is something of one's own to review. */
export function hasOwnPending() {
    return state.drafts.size + waiting().own.length > 0;
}
