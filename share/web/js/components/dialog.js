// A dialog above the page. The browser keeps the focus in it, and Escape closes it.

import { button, h, iconButton, uniqueId } from "../dom.js";
import { icon } from "../icons.js";

/** Shows it. Returns { element, body, foot, close, closed (a promise of what close() was given) }. */
export function dialog(title, { wide = false, content = [], actions = [] } = {}) {
    const id = uniqueId("dialog");
    const body = h("div", { class: "dialog-body" }, content);
    const foot = h("div", { class: "dialog-foot" }, actions);
    const element = h("dialog", { class: wide ? "dialog wide" : "dialog", "aria-labelledby": id },
        h("header", { class: "dialog-head" }, h("h2", { id }, title), iconButton("Close", icon("close"), () => element.close())), body, foot);
    let answer;
    const closed = new Promise((resolve) => element.addEventListener("close", () => {
        element.remove();
        resolve(answer);
    }));
    document.body.append(element);
    element.showModal();
    return {
        element, body, foot, closed,
        close(value) {
            answer = value;
            element.close();
        },
    };
}

/** Asks. A promise of true or undefined. */
export function ask(title, text, yes, { kind = "primary", content = [] } = {}) {
    const shown = dialog(title, { content: [text && h("p", {}, text), content] });
    shown.foot.append(button("Cancel", () => shown.close()), button(yes, () => shown.close(true), { kind }));
    shown.foot.querySelector(".button:last-child").focus();
    return shown.closed;
}

/** A dialog with a form; Enter sends. onSend(form) may throw: the dialog stays and shows why. */
export function formDialog(title, content, yes, onSend, { wide = false } = {}) {
    const error = h("p", { class: "form-error", role: "alert" });
    const shown = dialog(title, { wide });
    const send = h("button", { type: "submit", class: "button primary" }, yes);
    const form = h("form", { class: "dialog-form", submit: async (event) => {
        event.preventDefault();
        send.disabled = true;
        error.textContent = "";
        try {
            const result = await onSend(form);
            if (result !== false)
                shown.close(true);
        } catch (problem) {
            error.textContent = problem.message;
        } finally {
            send.disabled = false;
        }
    } }, shown.body, error, h("div", { class: "dialog-foot" }, button("Cancel", () => shown.close()), send));
    shown.foot.replaceWith(form);
    shown.body.append(...[content].flat(Infinity).filter(Boolean));
    shown.body.querySelector("input, select, textarea")?.focus();
    return shown.closed;
}
