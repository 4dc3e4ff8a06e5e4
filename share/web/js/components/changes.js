// Shows what a plan, a commit or an entry of the history says.

import { h } from "../dom.js";
import { icon } from "../icons.js";
import { state, text } from "../state.js";
import { labelOf, parent, title } from "../words.js";

function said(name, value) {
    const now = text(value);
    if (state.apis.get(name)?.secret)
        return h("span", { class: "nothing" }, "secret");
    if (now === null)
        return h("span", { class: "nothing" }, "unknown");
    if (state.apis.get(name)?.kind === "boolean")
        return now === "1" ? "On" : "Off";
    return now === "" ? h("span", { class: "nothing" }, "empty") : now;
}

/** Old and new values as a table. extra(name): what else is in the line. */
export function changeTable(changes, extra = () => null) {
    return h("ul", { class: "change-list" }, changes.map(({ name, from, to }) => h("li", {},
        h("div", { class: "change-name" }, h("span", {}, labelOf(name)), h("span", { class: "change-path", title: name }, title(parent(name)).join(" › "))),
        h("div", { class: "change-values" }, h("span", { class: "old" }, said(name, from)), icon("arrow"), h("span", { class: "hidden-text" }, " becomes "), h("span", { class: "new" }, said(name, to))),
        extra(name))));
}

function diffLine(line) {
    const kind = line.startsWith("@@") ? "place" : line.startsWith("+") ? "added" : line.startsWith("-") ? "gone" : "";
    return h("span", { class: `diff-line ${kind}` }, line || " ");
}

/** Files as they would change. */
export function fileDiffs(files) {
    return files.map(({ path, file, diff }, at) => h("details", { class: "diff", open: at === 0 }, h("summary", {}, h("code", {}, path ?? file)),
        h("pre", { tabindex: "0" }, diff.replace(/\n$/, "").split("\n").map(diffLine))));
}

function actionText(one) {
    return typeof one === "string" ? one : one.action;
}

function outcome(one) {
    if (typeof one === "string" || one.status === undefined || one.status === 0)
        return null;
    const status = one.status > 255 ? `exit status ${one.status >> 8}` : one.status === 1 ? "failed" : `ended by signal ${one.status}`;
    return h("span", { class: "bad" }, ` ${status}`);
}

/** Commands that run. */
export function actionList(actions) {
    return h("ol", { class: "action-list" }, actions.map((one) => h("li", {}, h("code", {}, actionText(one)), outcome(one),
        one.output?.length > 0 && h("pre", {}, one.output.join("\n")))));
}
