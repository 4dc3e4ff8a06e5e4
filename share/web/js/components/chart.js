// Small charts of the last minutes: a line for numbers, a band for states.

import { h, svg } from "../dom.js";
import { scaled } from "../words.js";

const SPAN = 5 * 60_000; // ms
const LEAST_SPAN = 60_000; // ms
const WIDTH = 240;
const HEIGHT = 44;

/** How a status value is drawn: { kind: "line" | "rate" | "band", unit, factor }, or null. */
export function drawing(api) {
    const last = api.name.slice(api.name.lastIndexOf(".") + 1);
    if (!api.isStatus)
        return null;
    if (/^(uplink|linkstate|signal)$/.test(last) || (api.kind === "choice" && /(state|status)$/.test(last)))
        return { kind: "band" };
    const bytes = /bytes$/.test(last);
    if (api.metric === "counter" || bytes)
        return { kind: "rate", unit: bytes ? "bit/s" : "/s", factor: bytes ? 8 : 1 };
    if (/bitrate$/.test(last))
        return { kind: "line", unit: "bit/s", factor: 1 };
    if (api.metric === "gauge" || /^(avg1min|temperature_c)$/.test(last))
        return { kind: "line", unit: last === "temperature_c" ? "°C" : "", factor: 1 };
    return null;
}

function rates(list) {
    const made = [];
    for (let at = 1; at < list.length; at++) {
        const seconds = (list[at].time - list[at - 1].time) / 1000;
        const difference = Number(list[at].value) - Number(list[at - 1].value);
        if (seconds > 0 && difference >= 0)
            made.push({ time: list[at].time, value: difference / seconds });
    }
    return made;
}

function points(list, how) {
    const numbers = how.kind === "rate" ? rates(list) : list.map(({ time, value }) => ({ time, value: value === "" ? NaN : Number(value) }));
    return numbers.filter(({ value }) => Number.isFinite(value)).map(({ time, value }) => ({ time, value: value * how.factor }));
}

function withUnit(value, unit) {
    const text = scaled(value);
    return unit && /\d$/.test(text) ? `${text} ${unit}` : `${text}${unit}`;
}

/** The time on the ground: the last minute at first, then more, up to five. */
function scaleOf(list, now) {
    const span = Math.min(SPAN, Math.max(LEAST_SPAN, now - (list[0]?.time ?? now)));
    return { minutes: Math.ceil(span / 60_000), place: (time) => WIDTH - ((now - time) / span) * WIDTH };
}

function drawLine(ground, list, place) {
    const values = list.map(({ value }) => value);
    const top = Math.max(...values);
    const least = Math.min(...values);
    const low = least >= 0 && least < top / 2 ? 0 : least;
    const height = top - low || Math.abs(top) || 1;
    const y = (value) => (top === low ? (top === 0 ? HEIGHT - 5 : HEIGHT / 2) : HEIGHT - 5 - ((value - low) / height) * (HEIGHT - 12));
    const line = list.map(({ time, value }) => `${place(time).toFixed(1)} ${y(value).toFixed(1)}`);
    const first = place(list[0].time).toFixed(1);
    const end = place(list.at(-1).time).toFixed(1);
    ground.append(
        svg("path", { class: "chart-area", d: `M${first} ${HEIGHT}L${line.join("L")}L${end} ${HEIGHT}Z` }),
        svg("path", { class: "chart-line", d: `M${line.join("L")}` }),
        svg("path", { class: "chart-now", d: `M${end} ${y(list.at(-1).value).toFixed(1)}h0.01` }));
}

const TONES = [[/^(up|on|locked|provider|running|good)$/i, "good"], [/^(internet|local|present|paused)$/i, "fair"], [/^(down|none|failed|lost|no)$/i, "bad"]];

// One piece for each time of a state, not for each reading.
function pieces(list) {
    return list.filter(({ value }, at) => at === 0 || list[at - 1].value !== value);
}

function drawBand(ground, all, place) {
    const list = pieces(all);
    list.forEach(({ time, value }, at) => {
        const from = Math.min(WIDTH - 3, Math.max(0, place(time)));
        const to = at + 1 < list.length ? place(list[at + 1].time) : WIDTH;
        const tone = TONES.find(([pattern]) => pattern.test(value))?.[1] ?? "unknown";
        ground.append(svg("rect", { class: `band ${tone}`, x: from.toFixed(1), y: HEIGHT - 30, width: Math.max(3, to - from + 0.4).toFixed(1), height: 22 }));
    });
}

/** A chart with its newest value: { element, draw(list of { time, value }) }. */
export function chart(title, how) {
    const ground = svg("svg", { class: "chart", viewBox: `0 0 ${WIDTH} ${HEIGHT}`, preserveAspectRatio: "none", role: "img" });
    const newest = h("span", { class: "chart-value" }, "…");
    const note = h("span", { class: "chart-note" }, "");
    const element = h("figure", { class: "chart-card" }, h("figcaption", {}, h("span", {}, title), newest), ground, note);
    return {
        element,
        draw(list) {
            ground.replaceChildren(svg("line", { class: "chart-base", x1: 0, x2: WIDTH, y1: HEIGHT - 1, y2: HEIGHT - 1 }));
            const { minutes, place } = scaleOf(list, Date.now());
            const span = minutes === 1 ? "last minute" : `last ${minutes} minutes`;
            const drawn = how.kind === "band" ? list.filter(({ value }) => value !== "") : points(list, how);
            if (drawn.length === 0) {
                newest.textContent = how.kind === "rate" && list.length > 0 ? "…" : "—";
                return;
            }
            (how.kind === "band" ? drawBand : drawLine)(ground, drawn, place);
            const last = drawn.at(-1).value;
            newest.textContent = how.kind === "band" ? last : withUnit(last, how.unit);
            note.textContent = span;
            if (how.kind !== "band")
                note.textContent += `, up to ${withUnit(Math.max(...drawn.map(({ value }) => value)), how.unit)}`;
            ground.setAttribute("aria-label", `${title}, now ${newest.textContent}`);
        },
    };
}
