import { h } from "../dom.js";
import { samples } from "../poller.js";
import { state } from "../state.js";
import { title } from "../words.js";
import { chart, drawing } from "./chart.js";

// Words that say nothing beside others.
const EMPTY = /^(Info|Traffic|Current settings|Interfaces|Hardware|System)$/;

function chartTitle(name) {
    return title(name.replace(/_bytes$/, "")).filter((part, at, all) => at === all.length - 1 || !EMPTY.test(part)).slice(-3).join(" · ");
}

/** Those that can be drawn. */
export function drawable(names) {
    return names.filter((name) => drawing(state.apis.get(name)));
}

/** Charts of those that can be drawn: { element or null, forget }. */
export function charts(names) {
    const drawn = drawable(names).map((name) => [name, drawing(state.apis.get(name))])
        .map(([name, how]) => ({ name, ...chart(chartTitle(name), how) }));
    if (drawn.length === 0)
        return { element: null, forget: () => {} };
    const draw = (read) => drawn.filter(({ name }) => !read || read.includes(name)).forEach((one) => one.draw(samples.byName.get(one.name) ?? []));
    draw();
    return { element: h("section", { class: "charts", "aria-label": "The last minutes" }, drawn.map(({ element }) => element)), forget: samples.on("read", draw) };
}
