// What happens on the appliance, as it happens. The browser comes back by itself and names the last event that it saw;
// where it gave up we begin anew.

import { api } from "./api.js";
import { Emitter } from "./emitter.js";
import { report } from "./health.js";

export const events = new Emitter();

const TRY_AGAIN_AFTER = 2000; // ms

let source = null;
let timer = 0;
let wasLost = false;

function parsed(text) {
    try {
        return JSON.parse(text);
    } catch {
        return null;
    }
}

function opened() {
    report("lost", "events", false);
    report("lost", "gateway", false);
    if (wasLost)
        events.emit("again");
    wasLost = false;
}

function failed() {
    wasLost = true;
    report("lost", "events", true);
    if (source?.readyState === EventSource.CLOSED) {
        stop();
        events.emit("ended");
        timer = setTimeout(start, TRY_AGAIN_AFTER);
    }
}

export function start() {
    stop();
    source = new EventSource(api.eventsLink);
    source.addEventListener("open", opened);
    source.addEventListener("error", failed);
    source.addEventListener("message", ({ data }) => {
        const event = parsed(data);
        if (event)
            events.emit("event", event);
    });
    source.addEventListener("reset", () => events.emit("reset"));
    source.addEventListener("lost", () => report("lost", "daemon", true));
    source.addEventListener("back", () => {
        report("lost", "daemon", false);
        events.emit("reset");
    });
}

export function stop() {
    clearTimeout(timer);
    source?.close();
    source = null;
}

/** Ends the stream for good: nobody is logged in any more. */
export function end() {
    stop();
    wasLost = false;
    report("lost", "events", false);
}
