import { button, h, iconButton } from "../dom.js";
import { icon } from "../icons.js";
import { state } from "../state.js";
import { loadValues } from "../sync.js";
import { nextTheme, theme } from "../theme.js";
import { searchBox } from "./search.js";

const THEMES = { auto: ["auto", "Colours as the device has them"], light: ["sun", "Light colours"], dark: ["moon", "Dark colours"] };

function themeButton() {
    const element = iconButton("", icon("auto"), () => say(nextTheme()));
    const say = (choice) => {
        const [symbol, name] = THEMES[choice];
        element.replaceChildren(icon(symbol));
        element.title = name;
        element.setAttribute("aria-label", `${name}; change`);
    };
    say(theme());
    return element;
}

function unitName() {
    const element = h("a", { class: "unit", href: "#/" });
    const update = () => {
        const values = state.header.map((name) => state.values.get(name)).filter(Boolean);
        const name = state.values.get("System.Configuration.Label.name") || state.values.get("Network.hostname") || state.session.host || "Appliance";
        const rest = [...new Set(values)].filter((one) => one !== name);
        element.replaceChildren(h("img", { src: "icon.svg", alt: "", width: "28", height: "28" }),
            h("span", { class: "unit-text" }, h("span", { class: "unit-name" }, name), h("span", { class: "unit-more" }, rest.join(" · "))));
        document.title = name;
    };
    update();
    return { element, forgets: ["System.Configuration.Label.name", "Network.hostname", ...state.header].map((name) => state.on(`setting ${name}`, update)) };
}

const LOOK_EVERY = 30_000; // ms

// Some status values say when a restart is needed.
function restartSigns() {
    return [...state.apis.values()].filter((api) => api.isStatus && api.choices?.includes("restart-needed")).map((api) => api.name);
}

function restartChip() {
    const element = h("a", { class: "chip restart", hidden: true, href: "#/page/maintenance" }, icon("warning"), h("span", {}, "Restart needed"));
    const signs = restartSigns();
    const update = () => (element.hidden = !state.restart && !signs.some((name) => state.values.get(name) === "restart-needed"));
    const look = () => loadValues(signs).catch(() => {});
    const timer = setInterval(look, LOOK_EVERY);
    const stops = [state.on("pending", update), ...signs.map((name) => state.on(`setting ${name}`, update))];
    look();
    update();
    return { element, forget: () => (clearInterval(timer), stops.forEach((stop) => stop())) };
}

/** { element, search, forget }. toggleNav: opens and closes the drawer. */
export function topbar(toggleNav, logOut) {
    const search = searchBox();
    const unit = unitName();
    const restart = restartChip();
    const drawer = iconButton("Pages", icon("menu"), toggleNav, { class: "icon-button drawer-button", "aria-controls": "nav", "aria-expanded": "false" });
    const element = h("header", { class: "topbar" }, drawer, unit.element, search.element, restart.element,
        h("div", { class: "topbar-end" }, themeButton(),
            h("span", { class: "who", title: `Logged in as ${state.session.user}` }, icon("person"), h("span", {}, state.session.user)),
            button("Log out", logOut, { kind: "quiet small" })));
    return { element, drawer, search, forget: () => [...unit.forgets, restart.forget].forEach((stop) => stop()) };
}
