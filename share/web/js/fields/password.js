import { h, iconButton, uniqueId } from "../dom.js";
import { icon } from "../icons.js";

/** Two fields that must be the same. changed(text) when they are, wrong() while they are not. */
export function passwordPair(ids, changed, wrong, names = ["New password", "The same again"]) {
    const note = h("p", { class: "pair-note", id: uniqueId("note"), role: "status" });
    const make = (id, label) => h("input", {
        type: "password", id, autocomplete: "new-password", placeholder: label, "aria-label": id ? null : label,
        "aria-describedby": `${ids.describedby ?? ""} ${note.id}`.trim(), input: tell,
    });
    const first = make(ids.id, names[0]);
    const again = make(null, names[1]);
    const eye = iconButton("Show what is typed", icon("eye"), () => {
        const show = first.type === "password";
        first.type = again.type = show ? "text" : "password";
        eye.setAttribute("aria-pressed", String(show));
    }, { "aria-pressed": "false" });
    function tell() {
        again.hidden = first.value === "";
        const same = first.value === again.value;
        note.textContent = same || again.value === "" ? "" : "These two are not the same.";
        if (same)
            changed(first.value);
        else
            wrong();
    }
    again.hidden = true;
    return {
        element: h("span", { class: "password-field" }, h("span", { class: "password-line" }, first, eye), again, note),
        input: first,
        clear() {
            first.value = again.value = "";
            again.hidden = true;
            note.textContent = "";
        },
        lock(locked) {
            first.disabled = again.disabled = eye.disabled = locked;
        },
    };
}

/** A secret: nobody sees it, one may give another one, twice. */
export function password(api, ids, changed, cancelled = () => {}) {
    const pair = passwordPair(ids, changed, cancelled);
    return {
        ...pair,
        set(text, marks) {
            pair.input.placeholder = marks?.unknown ? "Not shown" : text ? "Set; type a new one" : "None; type one";
            if (!marks?.edited)
                pair.clear();
        },
    };
}
