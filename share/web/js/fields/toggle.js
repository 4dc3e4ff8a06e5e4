import { h } from "../dom.js";

/** A switch, for what is on or off. */
export function toggle(api, ids, changed) {
    const word = h("span", { class: "switch-word", "aria-hidden": "true" });
    const input = h("input", {
        type: "checkbox", role: "switch", id: ids.id, "aria-describedby": ids.describedby, class: "switch",
        change: () => {
            say();
            changed(input.checked ? "1" : "0");
        },
    });
    const say = () => (word.textContent = input.checked ? "On" : "Off");
    return {
        element: h("span", { class: "switch-field" }, input, word),
        input,
        set(text) {
            input.checked = text === "1";
            say();
        },
        lock: (locked) => (input.disabled = locked),
    };
}
