// The pages, as a list at the side; a drawer where the screen is narrow.

import { h, safeLink } from "../dom.js";
import { hasIcon, icon } from "../icons.js";
import { expand } from "../names.js";
import { href } from "../router.js";
import { state } from "../state.js";

const OWN = [
    { id: "history", title: "History" },
    { id: "profiles", title: "Saved profiles", admin: true },
    { id: "presets", title: "Presets", admin: true },
    { id: "accounts", title: "Log-ins and passwords", admin: true },
    { id: "transfer", title: "Export and import" },
    { id: "wizard", title: "Set-up wizard", admin: true },
];

/** The pages that the console itself brings, as far as this account may use them. */
export function ownPages() {
    return OWN.filter((page) => !page.admin || state.session?.rights?.administrator);
}

function mark(page) {
    const dot = h("span", { class: "nav-mark", hidden: true });
    const names = new Set(expand(page.load ?? [], state.apis));
    const update = () => {
        const drafts = [...state.drafts.keys()].filter((name) => names.has(name)).length;
        const waits = [...state.modified.keys(), ...state.unapplied.keys()].some((name) => names.has(name));
        dot.hidden = drafts === 0 && !waits;
        dot.className = `nav-mark ${drafts > 0 ? "edited" : "modified"}`;
        dot.replaceChildren(dot.hidden ? "" : h("span", { class: "hidden-text" }, drafts > 0 ? " (edited)" : " (changes wait)"));
    };
    update();
    return { dot, update };
}

function link(page, to, symbol) {
    const external = page.external && safeLink(page.external);
    return h("a", external ? { href: external, target: "_blank", rel: "noopener noreferrer" } : { href: to, "data-route": to.slice(1) }, icon(symbol), h("span", {}, page.title));
}

/** { element, select(hash) }. */
export function navigation() {
    const marks = [];
    const settings = state.pages.filter((page) => page.external ? safeLink(page.external) : expand(page.load, state.apis).length > 0).map((page) => {
        const element = link(page, href("page", page.id), hasIcon(page.id) ? page.id : "group");
        const one = mark(page);
        marks.push(one.update);
        element.append(one.dot);
        return h("li", {}, element);
    });
    const own = ownPages().map((page) => h("li", {}, link(page, href(page.id), page.symbol ?? page.id)));
    const stop = state.on("pending", () => marks.forEach((update) => update()));
    const element = h("nav", { class: "nav", "aria-label": "Pages", id: "nav" },
        h("p", { class: "nav-title" }, "Appliance"), h("ul", {}, settings), h("p", { class: "nav-title" }, "Administration"), h("ul", {}, own));
    return {
        element,
        forget: stop,
        select(hash) {
            for (const one of element.querySelectorAll("a[data-route]")) {
                const here = hash === one.dataset.route || hash.startsWith(`${one.dataset.route}/`);
                if (here)
                    one.setAttribute("aria-current", "page");
                else
                    one.removeAttribute("aria-current");
            }
        },
    };
}
