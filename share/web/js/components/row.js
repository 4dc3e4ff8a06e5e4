// One setting: label, help, field, what is pending about it, and what is wrong.

import { h, iconButton, uniqueId } from "../dom.js";
import { makeField } from "../fields/index.js";
import { icon } from "../icons.js";
import { discard, edit, marksOf, shown, state } from "../state.js";
import { labelOf } from "../words.js";
import { moved } from "../moving.js";
import { details } from "./details.js";
import { takeBack } from "./takeback.js";

const LOCKED = "Your account may not change this setting.";

function said(api, text) {
    if (text === null)
        return api.secret ? "the former one" : "not known";
    if (api.kind === "boolean")
        return text === "1" ? "On" : "Off";
    return text === "" ? "empty" : text;
}

function chip(kind, text, back) {
    return h("span", { class: `chip ${kind}` }, h("span", {}, text), back);
}

function undoButton(name, what, action) {
    return iconButton(`${what}: ${labelOf(name)}`, icon("undo"), action);
}

function chips(api, marks) {
    const list = [];
    const { name } = api;
    if (marks.edited)
        list.push(chip("edited", api.secret ? "Edited" : `Edited, was ${said(api, marks.was)}`, undoButton(name, "Undo", () => discard([name]))));
    if (marks.conflict)
        list.push(chip("conflict", `Meanwhile ${said(api, state.values.get(name) ?? null)}`));
    const back = () => undoButton(name, "Take back", () => takeBack([name]));
    const who = marks.others ? `, by ${marks.by}` : "";
    if (marks.modified)
        list.push(chip("modified", `Not saved${who}${api.secret ? "" : `, saved is ${said(api, marks.saved)}`}`, api.writable && back()));
    else if (marks.unapplied)
        list.push(chip("unapplied", `Not applied${who}`));
    return list;
}

/** A row for the API, kept up to date until forget() is called: { element, forget }. */
export function row(api) {
    const { name } = api;
    const ids = { id: uniqueId("field"), label: uniqueId("label"), help: uniqueId("help"), error: uniqueId("error"), locked: uniqueId("locked") };
    const locked = !api.isStatus && !api.writable;
    ids.describedby = [api.help && ids.help, ids.error, locked && ids.locked].filter(Boolean).join(" ");
    const field = makeField(api, ids, (text) => edit(name, text));
    const marksLine = h("div", { class: "chips" });
    const errorLine = h("p", { class: "field-error", id: ids.error, "aria-live": "polite" });
    const more = details(api);
    const element = h("div", { class: `setting${api.isStatus ? " is-status" : ""}`, "data-name": name },
        h("div", { class: "setting-text" },
            h("label", { for: ids.id, id: ids.label }, labelOf(name),
                locked && h("span", { class: "lock", title: LOCKED }, icon("lock"), h("span", { class: "hidden-text", id: ids.locked }, LOCKED))),
            api.help && h("p", { class: "help", id: ids.help }, api.help)),
        h("div", { class: "setting-control" }, h("div", { class: "setting-line" }, field.element, more.button), marksLine, errorLine),
        more.element);

    function update() {
        const marks = marksOf(name);
        const text = shown(name);
        const typing = field.element.contains(document.activeElement);
        if (!typing || marks.edited === false || (field.input && field.input.value !== undefined && field.input.type !== "checkbox" && !api.secret && field.input.value !== text))
            field.set(text, { ...marks, unknown: state.values.has(name) && state.values.get(name) === null });
        element.classList.toggle("is-edited", marks.edited);
        element.classList.toggle("is-waiting", marks.modified || marks.unapplied);
        element.classList.toggle("is-others", marks.others);
        marksLine.replaceChildren(...chips(api, marks));
        errorLine.replaceChildren(...(marks.error ? [icon("warning"), h("span", {}, marks.error)] : moved(name, text) ? [icon("info"), h("span", { class: "note" }, moved(name, text))] : []));
        element.classList.toggle("is-wrong", Boolean(marks.error));
        field.input?.setAttribute("aria-invalid", String(Boolean(marks.error)));
    }
    field.lock(locked);
    update();
    return { element, forget: state.on(`setting ${name}`, update) };
}
