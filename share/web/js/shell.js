// What is around every page: the bar at the top, the pages at the side, the place for the page, and what is pending.

import { h } from "./dom.js";
import { confirmation } from "./components/confirmation.js";
import { healthLine } from "./components/healthline.js";
import { navigation } from "./components/nav.js";
import { pendingBar } from "./components/pendingbar.js";
import { topbar } from "./components/topbar.js";

const root = document.getElementById("app");
const [progress, healthText] = healthLine();
document.body.prepend(progress, healthText);

// They listen for ever, so there is one of each.
const banner = confirmation();
const bar = pendingBar();

/** Fills the window. Returns { main, nav, search, forget }. */
export function showShell(logOut) {
    const toggle = (open) => {
        const now = document.body.classList.toggle("nav-open", open);
        top.drawer.setAttribute("aria-expanded", String(now));
        if (now)
            nav.element.querySelector("a")?.focus();
    };
    const nav = navigation();
    const top = topbar(() => toggle(), logOut);
    const main = h("main", { class: "page", id: "main", tabindex: "-1" });
    const skip = h("a", { class: "skip", href: "#main", click: (event) => {
        event.preventDefault();
        main.focus();
    } }, "Skip to the page");
    const veil = h("div", { class: "veil", click: () => toggle(false) });
    root.replaceChildren(skip, top.element, h("div", { class: "frame" }, nav.element, veil, h("div", { class: "column" }, banner, main)), bar);
    return {
        main, nav,
        search: top.search,
        closeNav() {
            if (!document.body.classList.contains("nav-open"))
                return false;
            toggle(false);
            top.drawer.focus();
            return true;
        },
        hideNav: () => toggle(false),
        forget() {
            nav.forget();
            top.forget();
        },
    };
}

/** The window with nothing but this in it: log-in. */
export function showAlone(element) {
    document.body.classList.remove("nav-open");
    root.replaceChildren(element);
}
