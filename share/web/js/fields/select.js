import { h } from "../dom.js";

/** One of several choices. A value that is none of them (a file may hold one) is shown, too. */
export function select(api, ids, changed) {
    const input = h("select", { id: ids.id, "aria-describedby": ids.describedby, change: () => changed(input.value) });
    const offer = (text) => input.append(h("option", { value: text }, text === "" ? "(none)" : text));
    const known = new Set((api.choices ?? []).map(String));
    if (api.optional)
        known.add("");
    known.forEach(offer);
    return {
        element: h("span", { class: "select-field" }, input),
        input,
        set(text) {
            if (!known.has(text)) {
                known.add(text);
                offer(text);
            }
            input.value = text;
        },
        lock: (locked) => (input.disabled = locked),
    };
}
