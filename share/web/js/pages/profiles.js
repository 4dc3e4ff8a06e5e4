// Values under a name: saved, and loaded again.

import { api } from "../api.js";
import { ask, dialog, formDialog } from "../components/dialog.js";
import { attempt, toast } from "../components/toast.js";
import { button, h, uniqueId } from "../dom.js";
import { icon } from "../icons.js";
import { state } from "../state.js";
import { refreshMarks } from "../sync.js";
import { labelOf, parent, plural, title } from "../words.js";

/** A dialog with the values that something holds. */
export function valuesDialog(heading, values) {
    const list = Object.entries(values ?? {});
    dialog(heading, { wide: true, content: list.length === 0 ? [h("p", { class: "help" }, "It holds no values that you may see.")]
        : [h("p", { class: "help" }, plural(list.length, "value")), h("ul", { class: "change-list" }, list.map(([name, value]) => h("li", {},
            h("div", { class: "change-name" }, h("span", {}, labelOf(name)), h("span", { class: "change-path", title: name }, title(parent(name)).join(" › "))),
            h("div", { class: "change-values" }, String(value ?? "")))))] });
}

function saveDialog() {
    const id = uniqueId("name");
    const names = uniqueId("names");
    const name = h("input", { type: "text", id, class: "wide", required: true, maxlength: "40", autocomplete: "off" });
    const what = h("select", { id: names }, h("option", { value: "" }, "All settings"), [...new Set([...state.apis.keys()].map((one) => one.split(".")[0]))].map((one) => h("option", { value: one }, title(one)[0])));
    return formDialog("Save a profile", [h("p", { class: "help" }, "The values that run now, under a name."),
        h("div", { class: "form-line" }, h("label", { for: id }, "Name"), name),
        h("div", { class: "form-line" }, h("label", { for: names }, "What is in it"), h("span", { class: "select-field" }, what))],
    "Save", () => api.replace("profiles", name.value.trim(), what.value ? { names: [what.value] } : {}));
}

async function load(profile) {
    if (!(await ask(`Load ${profile.name}?`, "What is set and not saved is lost; then the values of the profile are set. They wait to be committed.", "Load")))
        return;
    await attempt(async () => {
        await api.create("profiles", profile.name, {});
        await refreshMarks();
    }, "Loaded. Review and commit what has changed.");
}

async function remove(profile) {
    if (await ask(`Remove ${profile.name}?`, "Settings stay as they are.", "Remove", { kind: "danger" }))
        await attempt(() => api.remove("profiles", profile.name), "Removed.");
}

// A profile is a file, and shown as it stands there: escaped.
function plain(value) {
    try {
        return typeof value === "string" ? decodeURIComponent(value.replaceAll("+", " ")) : value;
    } catch {
        return value;
    }
}

async function show(profile) {
    const found = await attempt(() => api.list(`profiles/${encodeURIComponent(profile.name)}`));
    if (found)
        valuesDialog(profile.name, Object.fromEntries(Object.entries(found.values).map(([name, value]) => [name, plain(value)])));
}

function line(profile, may, after) {
    const then = (action) => async () => {
        await action(profile);
        await after();
    };
    return h("li", { class: "list-line", "data-profile": profile.name }, h("div", { class: "list-main" }, h("b", {}, profile.name), profile.desc && h("div", { class: "help" }, profile.desc)),
        h("div", { class: "list-actions" }, button("Show", () => show(profile), { kind: "small quiet" }), may && button("Load", then(load), { kind: "small" }), may && button("Remove", then(remove), { kind: "small quiet" })));
}

export async function profilesPage(place, id, current) {
    const list = h("ul", { class: "card list" });
    const may = Boolean(state.session.rights?.administrator);
    async function read() {
        const { profiles } = await api.list("profiles");
        list.replaceChildren(...(profiles.length > 0 ? profiles.map((profile) => line(profile, may, read)) : [h("li", { class: "list-line" }, "There is no profile yet.")]));
    }
    await read();
    if (!current())
        return () => {};
    place.replaceChildren(h("div", { class: "page-main" },
        h("div", { class: "page-head" }, h("h1", { tabindex: "-1" }, "Saved profiles"),
            may && button("Save a profile", async () => (await saveDialog()) && (toast("Saved."), read()), { kind: "primary", symbol: icon("plus") })),
        h("p", { class: "help" }, "Sets of values for different occasions."), list));
    return state.on("event", (event) => event === "profile" && read().catch(() => {}));
}
