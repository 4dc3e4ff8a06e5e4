import { h } from "../dom.js";

/** Several of the choices, with blanks between them in the value. */
export function choices(api, ids, changed) {
    const boxes = (api.choices ?? []).map(String).map((choice) => h("input", { type: "checkbox", value: choice, change: tell }));
    let others = []; // what the value has beside the choices stays
    function tell() {
        changed([...boxes.filter((box) => box.checked).map((box) => box.value), ...others].join(" "));
    }
    const element = h("span", { class: "choices", role: "group", id: ids.id, tabindex: "-1", "aria-labelledby": ids.label, "aria-describedby": ids.describedby },
        boxes.map((box) => h("label", {}, box, h("span", {}, box.value))));
    return {
        element,
        input: boxes[0] ?? element,
        set(text) {
            const given = text.split(/[\s,]+/).filter(Boolean);
            boxes.forEach((box) => (box.checked = given.includes(box.value)));
            others = given.filter((one) => !boxes.some((box) => box.value === one));
        },
        lock: (locked) => boxes.forEach((box) => (box.disabled = locked)),
    };
}
