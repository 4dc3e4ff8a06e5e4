// Short messages that go by themselves; errors stay until they are closed.

import { Problem } from "../api.js";
import { h, iconButton } from "../dom.js";
import { icon } from "../icons.js";
import { capital } from "../words.js";

const SHOWN_FOR = 5000; // ms

const place = h("div", { class: "toasts", role: "status", "aria-live": "polite" });
document.body.append(place);

export function toast(text, kind = "good") {
    const element = h("div", { class: `toast ${kind}` }, icon(kind === "good" ? "check" : kind === "bad" ? "warning" : "info"), h("p", {}, text),
        iconButton("Close", icon("close"), () => element.remove()));
    place.append(element);
    while (place.childElementCount > 4)
        place.firstElementChild.remove();
    if (kind !== "bad")
        setTimeout(() => element.remove(), SHOWN_FOR);
}

/** What to tell a person of an error. */
export function told(error) {
    if (error instanceof Problem && error.errors.size > 0)
        return [...error.errors].map(([name, detail]) => `${name}: ${detail}`).join("\n");
    if (error instanceof Problem && error.retryAfter)
        return `${capital(error.message)}: try again in ${error.retryAfter} s.`;
    return capital(error.message);
}

/** Does it, and says how it ended. Returns its result, or undefined. */
export async function attempt(action, done) {
    try {
        const result = await action();
        if (done)
            toast(done);
        return result;
    } catch (error) {
        toast(told(error), "bad");
        return undefined;
    }
}
