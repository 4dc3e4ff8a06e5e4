// Status values, read again and again while somebody looks. Groups are read one by one, so that a slow one holds up none.

import { byGroup } from "./names.js";
import { health } from "./health.js";
import { Emitter } from "./emitter.js";
import { loadValues } from "./sync.js";
import { state } from "./state.js";

const EVERY = 3000; // ms
const AT_ONCE = 2;
const KEPT_FOR = 5 * 60_000; // ms

export const samples = Object.assign(new Emitter(), { byName: new Map() });

function remember(name) {
    const value = state.values.get(name);
    if (value === undefined || value === null)
        return;
    const list = samples.byName.get(name) ?? [];
    const now = Date.now();
    list.push({ time: now, value });
    while (list.length > 0 && list[0].time < now - KEPT_FOR)
        list.shift();
    samples.byName.set(name, list);
}

async function readOnce(names) {
    const queue = byGroup(names);
    const worker = async () => {
        for (let next = queue.shift(); next; next = queue.shift()) {
            await loadValues(next[1]).then(() => next[1].forEach(remember), () => {});
            samples.emit("read", next[1]);
        }
    };
    await Promise.all(Array.from({ length: AT_ONCE }, worker));
}

/** Reads these until the function that it returns is called. */
export function poll(names) {
    let timer = 0;
    let over = names.length === 0;
    const round = async () => {
        if (document.visibilityState === "visible" && health.state !== "lost" && state.session)
            await readOnce(names);
        if (!over)
            timer = setTimeout(round, EVERY);
    };
    if (!over)
        round();
    return () => {
        over = true;
        clearTimeout(timer);
    };
}
