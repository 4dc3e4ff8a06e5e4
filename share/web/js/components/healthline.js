// Says when the appliance is slow or gone, and that it is back.

import { h } from "../dom.js";
import { icon } from "../icons.js";
import { health } from "../health.js";

const BACK_FOR = 2500; // ms

const WORDS = {
    slow: "The appliance is slow to answer …",
    lost: "No connection to the appliance. Trying again; what you edited here is kept.",
    well: "Connected again.",
};

export function healthLine() {
    const element = h("div", { class: "health", role: "status", hidden: true });
    const progress = h("div", { class: "progress", hidden: true, "aria-hidden": "true" });
    let timer = 0;
    const say = (state) => {
        clearTimeout(timer);
        element.hidden = false;
        element.className = `health ${state}`;
        element.replaceChildren(icon(state === "well" ? "check" : "warning"), h("span", {}, WORDS[state]));
    };
    health.on("state", (now, before) => {
        if (now === "well" && before === "slow")
            element.hidden = true;
        else {
            say(now);
            if (now === "well")
                timer = setTimeout(() => (element.hidden = true), BACK_FOR);
        }
    });
    let waitTimer = 0;
    health.on("waiting", (count) => {
        clearTimeout(waitTimer);
        if (count === 0)
            progress.hidden = true;
        else if (progress.hidden)
            waitTimer = setTimeout(() => (progress.hidden = false), 400);
    });
    return [progress, element];
}
