// Makes elements. Text only ever becomes text: there is no way from a value to markup here.

const SVG = "http://www.w3.org/2000/svg";

function fill(element, attributes, children) {
    for (const [key, value] of Object.entries(attributes)) {
        if (value === undefined || value === null || value === false)
            continue;
        if (typeof value === "function")
            element.addEventListener(key, value);
        else
            element.setAttribute(key, value === true ? "" : value);
    }
    element.append(...children.flat(Infinity).filter((child) => child !== undefined && child !== null && child !== false));
    return element;
}

/** An element. attributes: functions are listeners of the event, true is an attribute without a value, false and null none. */
export function h(tag, attributes = {}, ...children) {
    return fill(document.createElement(tag), attributes, children);
}

export function svg(tag, attributes = {}, ...children) {
    return fill(document.createElementNS(SVG, tag), attributes, children);
}

let last = 0;

/** An id that no other element has. */
export function uniqueId(prefix) {
    return `${prefix}-${++last}`;
}

/** A button with a text and, where named, an icon before it. */
export function button(text, onClick, { kind = "", symbol, ...attributes } = {}) {
    return h("button", { type: "button", class: `button ${kind}`, click: onClick, ...attributes }, symbol, h("span", {}, text));
}

/** A button that shows an icon alone; its name is read out and shown as a tip. */
export function iconButton(name, symbol, onClick, attributes = {}) {
    return h("button", { type: "button", class: "icon-button", "aria-label": name, title: name, click: onClick, ...attributes }, symbol);
}

/** Where the value leads as a link, or null: only http and https. */
export function safeLink(text) {
    try {
        const url = new URL(text);
        return ["http:", "https:"].includes(url.protocol) ? url.href : null;
    } catch {
        return null;
    }
}
