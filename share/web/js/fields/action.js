// What is done at once when it is asked for, such as a restart: a button for each thing that can be asked for.

import { api } from "../api.js";
import { ask } from "../components/dialog.js";
import { attempt } from "../components/toast.js";
import { button, h } from "../dom.js";
import { label, labelOf } from "../words.js";

/** Whether it is one: it holds nothing, and takes words. */
export function isAction(described) {
    return described.kind === "choice" && Boolean(described.dynamic) && described.default === undefined && !described.isStatus;
}

function doNow(described, choice, names) {
    return async () => {
        if (await ask(`${names[choice]}?`, described.help ?? described.name, names[choice], { kind: "danger" }))
            await attempt(() => api.set({ [described.name]: choice }), "It was asked for.");
    };
}

export function action(described, ids) {
    const choices = described.choices.map(String).filter(Boolean);
    const names = Object.fromEntries(choices.map((choice) => [choice, choices.length === 1 ? labelOf(described.name) : label(choice)]));
    const buttons = choices.map((choice) => button(`${names[choice]} …`, doNow(described, choice, names), { "aria-describedby": ids.describedby }));
    buttons[0].id = ids.id;
    return {
        element: h("span", { class: "actions" }, buttons),
        input: null,
        set: () => {},
        lock: (locked) => buttons.forEach((one) => (one.disabled = locked)),
    };
}
