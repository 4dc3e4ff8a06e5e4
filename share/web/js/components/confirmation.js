// What awaits confirmation, with its countdown: to be kept, given more time, or undone.

import { api } from "../api.js";
import { button, h, svg } from "../dom.js";
import { icon } from "../icons.js";
import { state } from "../state.js";
import { refreshMarks } from "../sync.js";
import { minutes } from "../words.js";
import { attempt, toast } from "./toast.js";

const MORE = 120; // s
const RING = 2 * Math.PI * 15;

function ring() {
    const arc = svg("circle", { class: "ring-arc", cx: 18, cy: 18, r: 15, "stroke-dasharray": RING.toFixed(1) });
    return { arc, element: svg("svg", { class: "ring", viewBox: "0 0 36 36", "aria-hidden": "true" }, svg("circle", { class: "ring-ground", cx: 18, cy: 18, r: 15 }), arc) };
}

function who(commit) {
    const mine = commit.own || commit.user === state.session?.user;
    return mine ? "Your change" : `A change of ${commit.user ?? "somebody"}`;
}

/** The banner; it hides itself while nothing awaits confirmation. */
export function confirmation() {
    const { arc, element: circle } = ring();
    const left = h("b", { class: "numeric" });
    const sentence = h("p", {});
    const spoken = h("p", { class: "hidden-text", role: "status" });
    const element = h("aside", { class: "confirmation", "aria-label": "Awaits confirmation", hidden: true }, circle,
        h("div", { class: "confirmation-text" }, sentence, h("p", { class: "help" }, "Without a confirmation it is undone in ", left, "."), spoken),
        h("div", { class: "confirmation-actions" },
            button("Undo now", () => settle(api.abort, "Undone."), { kind: "quiet" }),
            button(`+ ${MORE / 60} min`, () => settle(() => api.confirm(Math.round((state.commit.until - Date.now()) / 1000) + MORE)), { kind: "quiet", title: "Two minutes more" }),
            button("Keep the change", () => settle(() => api.confirm(), "Confirmed. The change stays."), { kind: "primary", symbol: icon("check") })));
    let timer = 0;
    let whole = 1;
    let known = null;
    let user = null;

    function settle(action, done) {
        return attempt(async () => {
            known = null; // who settles it need not be told
            await action();
            await refreshMarks();
        }, done);
    }
    // It ended while this page had no connection.
    function tellOfEnd() {
        if (known !== null && user === state.session?.user)
            toast(`The change ${known} does not wait any more: the history says what became of it.`, "note");
        known = null;
    }
    function tick() {
        const seconds = (state.commit.until - Date.now()) / 1000;
        left.textContent = minutes(seconds);
        arc.setAttribute("stroke-dashoffset", (RING * (1 - Math.max(0, Math.min(1, seconds / whole)))).toFixed(1));
        element.classList.toggle("is-urgent", seconds < 20);
        if (seconds < -1)
            refreshMarks().catch(() => {});
    }
    function update() {
        clearInterval(timer);
        element.hidden = !state.commit;
        document.body.classList.toggle("has-confirmation", Boolean(state.commit));
        if (!state.commit)
            return tellOfEnd();
        const seconds = (state.commit.until - Date.now()) / 1000;
        if (known !== state.commit.number) {
            known = state.commit.number;
            user = state.session?.user;
            whole = seconds;
            spoken.textContent = `A change awaits confirmation; it is undone in ${Math.round(seconds)} seconds.`;
        }
        whole = Math.max(whole, seconds, 1);
        sentence.replaceChildren(h("b", {}, `${who(state.commit)} (number ${state.commit.number}) awaits confirmation.`), state.commit.text ? ` “${state.commit.text}”` : "");
        tick();
        timer = setInterval(tick, 1000);
    }
    state.on("commit", update);
    state.on("event", (event, payload) => {
        if (event === "rollback" && known !== null && element.hidden === false)
            toast(`The change ${known} was undone (entry ${payload.replace("entry=", "")} of the history).`, "note");
        if (event === "rollback" || event === "confirm")
            known = null;
    });
    update();
    return element;
}
