import { h, safeLink } from "../dom.js";

const STATES = { good: /^(up|on|ok|locked|running|provider|internet|good|excellent|connected)$/i, bad: /^(down|failed|error|none|lost|poor|full)$/i };

function tone(api, text) {
    if (api.kind !== "choice" && !/state$|uplink|signal/i.test(api.name))
        return "";
    return STATES.good.test(text) ? "good" : STATES.bad.test(text) ? "bad" : "neutral";
}

/** What the appliance tells: nothing to edit. */
export function value(api, ids) {
    const element = h("output", { id: ids.id, class: "value", "aria-labelledby": ids.label });
    return {
        element,
        input: null,
        set(text) {
            const link = safeLink(text);
            const kind = text ? tone(api, text) : "";
            element.replaceChildren(
                link ? h("a", { href: link, rel: "noopener noreferrer", target: "_blank" }, text)
                    : kind ? h("span", { class: `state ${kind}` }, text)
                        : text || h("span", { class: "nothing" }, "—"));
        },
        lock: () => {},
    };
}
