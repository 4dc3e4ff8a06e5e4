// A page of the menu: its groups as cards, charts of what moves, and a list of what is on it.

import { h } from "../dom.js";
import { icon } from "../icons.js";
import { byCard, byGroup, commonGroup, expand } from "../names.js";
import { poll } from "../poller.js";
import { state } from "../state.js";
import { needValues } from "../sync.js";
import { parent } from "../words.js";
import { charts, drawable } from "../components/charts.js";
import { groupCard } from "../components/groupcard.js";

const MOST_CHARTS = 9;

function contents(cards) {
    if (cards.length < 3)
        return null;
    const jump = (card) => (event) => {
        event.preventDefault();
        card.element.scrollIntoView({ block: "start" });
        card.element.querySelector("h2").focus({ preventScroll: true });
    };
    return h("nav", { class: "contents", "aria-label": "On this page" }, h("p", {}, "On this page"),
        cards.map((card) => h("a", { href: location.hash, click: jump(card) }, card.title)));
}

function lookingOnly(names) {
    const settings = names.map((name) => state.apis.get(name)).filter((api) => !api.isStatus);
    if (settings.length === 0 || settings.some((api) => api.writable))
        return null;
    return h("p", { class: "notice" }, icon("lock"), h("span", {}, `You may look at this page, but your account (${state.session.user}) may not change anything on it.`));
}

// Bit rates, links and uplink belong on a page that shows status alone, wherever they stand in the model.
async function overviewNames(status) {
    const weight = (name) => ["bitrate", "uplink", "linkstate", "bytes"].findIndex((one) => name.endsWith(one) && state.values.get(name) !== "0");
    const all = [...state.apis.values()].filter((api) => api.isStatus && api.readable !== false).map((api) => api.name);
    const extra = all.filter((name) => weight(name) >= 0);
    await needValues(extra.filter((name) => !name.endsWith("uplink")));
    const order = (name) => (weight(name) < 0 ? 9 : weight(name));
    return drawable([...new Set([...extra, ...status])]).filter((name) => !isSilent(name)).sort((a, b) => order(a) - order(b)).slice(0, MOST_CHARTS);
}

// An interface that is not there, or a value that nobody gives, needs no chart.
function isSilent(name) {
    const link = `${parent(name).replace(/\.Traffic$/, "")}.linkstate`;
    return [state.values.get(name), state.values.get(link)].some((value) => ["unknown", "n/a", ""].includes(value));
}

/** Brings a setting into view, and marks it for a moment. */
function pointAt(place, name) {
    const found = [...place.querySelectorAll("[data-name]")].find((element) => element.dataset.name === name);
    if (!found)
        return;
    found.scrollIntoView({ block: "center" });
    found.classList.add("is-found");
    found.querySelector("input:not([disabled]), select, button")?.focus({ preventScroll: true });
}

/** Shows the page at place. Returns how to leave it. */
export async function settingsPage(place, page, found, current) {
    const names = expand(page.load, state.apis).filter((name) => state.apis.get(name).readable !== false);
    const status = names.filter((name) => state.apis.get(name).isStatus);
    await needValues(names.filter((name) => !state.apis.get(name).isStatus));
    const isOverview = status.length === names.length;
    const top = isOverview ? await overviewNames(status) : [];
    if (!current())
        return () => {};
    const groups = byGroup(names);
    const base = commonGroup(groups.map(([group]) => group));
    const cards = byCard(groups, base).map(([card, members]) => groupCard(card, members, base, !isOverview));
    const drawn = charts(top);
    place.replaceChildren(
        h("div", { class: "page-main" }, h("h1", { tabindex: "-1" }, page.title), lookingOnly(names), drawn.element, cards.map((card) => card.element),
            names.length === 0 && h("p", { class: "empty" }, "There is nothing on this page that you may see.")),
        contents(cards) ?? "");
    const stopPolling = poll([...new Set([...top, ...status])]);
    if (found)
        pointAt(place, found);
    return () => {
        stopPolling();
        drawn.forget();
        cards.forEach((card) => card.forget());
    };
}
