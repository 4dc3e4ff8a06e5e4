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

/** { element, id, title, forget }. base: the group that all of the page have in common. withCharts: of what moves in it. */
export function groupCard(group, names, base, withCharts = false) {
    const id = uniqueId("group");
    const apis = names.map((name) => state.apis.get(name));
    const settings = apis.filter((api) => !api.isStatus).map(row);
    const facts = apis.filter((api) => api.isStatus).map(statusLine);
    const drawn = charts(withCharts ? names : []);
    const parts = shortTitle(group, base);
    const element = h("section", { class: "card", "aria-labelledby": id, "data-group": group },
        h("h2", { id, tabindex: "-1" }, titleText(parts)),
        drawn.element,
        facts.length > 0 && h("dl", { class: "facts" }, facts.map((one) => one.element)),
        settings.map((one) => one.element));
    return {
        element, id,
        title: parts.join(" › "),
        forget: () => [...settings, drawn, ...facts].forEach((one) => one.forget()),
    };
}
