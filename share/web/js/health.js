// How the appliance answers: "well", "slow" or "lost". Who waits for it to come back asks whenWell().

import { Emitter } from "./emitter.js";

const SLOW_AFTER = 2500; // ms

export const health = Object.assign(new Emitter(), { state: "well", waiting: 0 });

const reasons = { slow: new Set(), lost: new Set() };

function settle() {
    const state = reasons.lost.size > 0 ? "lost" : reasons.slow.size > 0 ? "slow" : "well";
    if (state === health.state)
        return;
    const before = health.state;
    health.state = state;
    health.emit("state", state, before);
}

/** Something that is wrong (or not any more), by a word of its own. */
export function report(kind, reason, wrong) {
    if (wrong)
        reasons[kind].add(reason);
    else
        reasons[kind].delete(reason);
    settle();
}

/** Watches one request: says so when it takes long. Returns what ends the watch. */
export function watch() {
    const mark = Symbol("request");
    health.waiting += 1;
    health.emit("waiting", health.waiting);
    const timer = setTimeout(() => report("slow", mark, true), SLOW_AFTER);
    return () => {
        clearTimeout(timer);
        health.waiting -= 1;
        health.emit("waiting", health.waiting);
        report("slow", mark, false);
    };
}
