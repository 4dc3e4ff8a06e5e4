// Finds settings by name, label and help text.

import { h, uniqueId } from "../dom.js";
import { icon } from "../icons.js";
import { expand } from "../names.js";
import { go } from "../router.js";
import { state } from "../state.js";
import { labelOf, parent, title } from "../words.js";

const MOST = 12;

/** The page of the menu on which an API stands, else the one of its group. */
export function placeOf(name) {
    const page = state.pages.find((one) => !one.external && expand(one.load, new Map([[name, true]])).length > 0);
    return page ? ["page", page.id, name] : ["group", parent(name) || name, name];
}

function score(api, words) {
    const name = api.name.toLowerCase();
    const label = labelOf(api.name).toLowerCase();
    let total = 0;
    for (const word of words) {
        const help = `${api.help ?? ""} ${api.desc ?? ""}`.toLowerCase();
        const here = (label === word ? 12 : label.startsWith(word) ? 8 : label.includes(word) ? 6 : 0) || (name.includes(word) ? 4 : 0) || (help.includes(word) ? 2 : 0);
        if (here === 0)
            return 0;
        total += here;
    }
    return total + (api.isStatus ? 0 : 1);
}

/** The best settings and pages for what was typed: { pages, settings }. */
export function find(typed) {
    const words = typed.toLowerCase().split(/\s+/).filter(Boolean);
    if (words.length === 0)
        return { pages: [], settings: [] };
    const pages = state.pages.filter((page) => words.every((word) => page.title.toLowerCase().includes(word)));
    const settings = [...state.apis.values()].map((api) => [score(api, words), api]).filter(([points]) => points > 0)
        .sort((a, b) => b[0] - a[0]).slice(0, MOST).map(([, api]) => api);
    return { pages: pages.slice(0, 3), settings };
}

/** The box with its list. */
export function searchBox() {
    const list = h("ul", { class: "search-list", role: "listbox", id: uniqueId("found"), "aria-label": "Found", hidden: true });
    const input = h("input", {
        type: "search", class: "search-input", placeholder: "Search settings", "aria-label": "Search settings", role: "combobox", autocomplete: "off", spellcheck: "false",
        "aria-expanded": "false", "aria-controls": list.id, "aria-autocomplete": "list", input: show, focus: show, keydown: key,
        blur: () => setTimeout(close, 150),
    });
    let chosen = -1;
    function close() {
        list.hidden = true;
        input.setAttribute("aria-expanded", "false");
        input.removeAttribute("aria-activedescendant");
        chosen = -1;
    }
    function item(symbol, text, where, help, path) {
        return h("li", { role: "option", id: uniqueId("option"), "aria-selected": "false", mousedown: (event) => event.preventDefault(), click: () => open(path) },
            icon(symbol), h("span", { class: "found-text" }, h("span", { class: "found-name" }, text), h("span", { class: "found-where" }, where), help && h("span", { class: "found-help" }, help)));
    }
    function open(path) {
        close();
        input.value = "";
        input.blur();
        go(...path);
    }
    function show() {
        const { pages, settings } = find(input.value);
        list.replaceChildren(
            ...pages.map((page) => item("group", page.title, "Page", "", ["page", page.id])),
            ...settings.map((api) => item(api.isStatus ? "status" : "unit", labelOf(api.name), title(parent(api.name)).join(" › "), api.help, placeOf(api.name))));
        if (input.value.trim() && list.childElementCount === 0)
            list.append(h("li", { class: "found-nothing" }, "Nothing is named or described like this."));
        list.hidden = !input.value.trim();
        input.setAttribute("aria-expanded", String(!list.hidden));
        choose(pages.length + settings.length > 0 ? 0 : -1);
    }
    function choose(at) {
        chosen = at;
        [...list.children].forEach((one, index) => one.setAttribute("aria-selected", String(index === at)));
        const now = list.children[at];
        if (now?.id)
            input.setAttribute("aria-activedescendant", now.id);
        now?.scrollIntoView({ block: "nearest" });
    }
    function key(event) {
        const options = list.querySelectorAll('[role="option"]').length;
        if (event.key === "ArrowDown" || event.key === "ArrowUp") {
            event.preventDefault();
            if (options > 0)
                choose((chosen + (event.key === "ArrowDown" ? 1 : options - 1)) % options);
        } else if (event.key === "Enter" && chosen >= 0)
            list.children[chosen].click();
        else if (event.key === "Escape") {
            event.stopPropagation();
            input.value = "";
            close();
            input.blur();
        }
    }
    return { element: h("div", { class: "search", role: "search" }, icon("search"), input, h("kbd", { "aria-hidden": "true" }, "/"), list), focus: () => input.focus() };
}
