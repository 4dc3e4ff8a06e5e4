import { h } from "../dom.js";

function inRange(api, value) {
    return Math.min(api.maximum ?? Infinity, Math.max(api.minimum ?? -Infinity, value));
}

function range(api) {
    if (api.minimum !== undefined && api.maximum !== undefined)
        return `${api.minimum} to ${api.maximum}`;
    return api.minimum !== undefined ? `from ${api.minimum}` : api.maximum !== undefined ? `up to ${api.maximum}` : "";
}

/** A number with its range. What is typed is sent as it is: what is refused, and why, says the daemon. */
export function number(api, ids, changed) {
    const step = api.step ?? 1;
    const input = h("input", {
        type: "text", inputmode: api.minimum >= 0 ? (step === 1 ? "numeric" : "decimal") : "text", id: ids.id, autocomplete: "off",
        "aria-describedby": ids.describedby, class: "number", input: () => changed(input.value.trim()),
        keydown: (event) => {
            const by = { ArrowUp: step, ArrowDown: -step }[event.key];
            if (by === undefined || input.readOnly)
                return;
            event.preventDefault();
            input.value = String(inRange(api, (Number(input.value) || 0) + by));
            changed(input.value);
        },
    });
    return {
        element: h("span", { class: "number-field" }, input, h("span", { class: "range" }, range(api))),
        input,
        set: (text) => (input.value = text),
        lock: (locked) => (input.readOnly = locked),
    };
}
