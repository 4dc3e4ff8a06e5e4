import { h, iconButton, uniqueId } from "../dom.js";
import { icon } from "../icons.js";

function limits(api) {
    if (api.minimum !== undefined || api.maximum !== undefined)
        return `${api.minimum ?? "…"} to ${api.maximum ?? "…"}`;
    if (api.maxLength !== undefined)
        return `${api.minLength ?? 0} to ${api.maxLength} characters`;
    return null;
}

function lines(api) {
    return [
        ["Name", api.name], ["Type", api.type], ["Takes", limits(api)],
        ["Default", api.isStatus || api.secret ? null : api.default === undefined || api.default === null ? null : api.default === "" ? "(empty)" : String(api.default)],
        ["Takes effect", api.isStatus ? null : api.applies ? "when it is applied; a commit does that" : "at once"],
    ].filter(([, text]) => text);
}

/** What more there is to know of an API, behind a button: { button, element }. */
export function details(api) {
    const element = h("div", { class: "details", id: uniqueId("details"), hidden: true });
    const button = iconButton("More about this", icon("info"), () => {
        if (element.childElementCount === 0)
            element.append(api.desc ? h("p", {}, api.desc) : "",
                h("dl", {}, lines(api).map(([name, text]) => [h("dt", {}, name), h("dd", {}, name === "Name" || name === "Type" ? h("code", {}, text) : text)])));
        element.hidden = !element.hidden;
        button.setAttribute("aria-expanded", String(!element.hidden));
    }, { "aria-expanded": "false", "aria-controls": element.id, class: "icon-button quiet" });
    return { button, element };
}
