// A card with the settings of one group.

import { h, uniqueId } from "../dom.js";
import { state } from "../state.js";
import { heading, labelOf } from "../words.js";
import { charts } from "./charts.js";
import { row } from "./row.js";
import { value } from "../fields/value.js";

function shownValue(name) {
    const text = state.values.get(name);
    return text === null ? "not shown" : text ?? "";
}

function statusLine(api) {
    const ids = { id: uniqueId("value"), label: uniqueId("label") };
    const field = value(api, ids);
    const element = h("div", { class: "fact", "data-name": api.name, title: api.help || api.name }, h("dt", { id: ids.label }, labelOf(api.name)), h("dd", {}, field.element));
    const update = () => field.set(shownValue(api.name));
    update();
    return { element, forget: state.on(`setting ${api.name}`, update) };
}

// What is common to the page need not be said of each group.
function shortTitle(group, base) {
    const parts = heading(group);
    return parts.slice(Math.min(base ? heading(base).length : 0, parts.length - 1));
}

function titleText(rest) {
    return [rest.slice(0, -1).map((part) => h("span", { class: "path" }, part, " › ")), rest.at(-1)];
}

// What stands in one group: charts of what moves in it, then what the appliance tells, then settings.
function section(names, withCharts) {
    const apis = names.map((name) => state.apis.get(name));
    const settings = apis.filter((api) => !api.isStatus).map(row);
    const facts = apis.filter((api) => api.isStatus).map(statusLine);
    const drawn = charts(withCharts ? names : []);
    return {
        elements: [drawn.element, facts.length > 0 && h("dl", { class: "facts" }, facts.map((one) => one.element)), settings.map((one) => one.element)],
        forget: () => [...settings, drawn, ...facts].forEach((one) => one.forget()),
    };
}

/** { element, title, forget }. groups: what is in it. base: the group that all of the page have in common. */
export function groupCard(card, groups, base, withCharts = false) {
    const id = uniqueId("group");
    const parts = shortTitle(card, base);
    const sections = groups.map(([group, names]) => ({ group, ...section(names, withCharts) }));
    const element = h("section", { class: "card", "aria-labelledby": id, "data-group": card },
        h("h2", { id, tabindex: "-1" }, titleText(parts)),
        sections.map((one) => [one.group !== card && h("h3", {}, titleText(shortTitle(one.group, card))), one.elements]));
    return { element, title: parts.join(" › "), forget: () => sections.forEach((one) => one.forget()) };
}
