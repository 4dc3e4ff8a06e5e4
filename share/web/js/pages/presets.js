// Numbered sets of the values that the appliance's template names.

import { api } from "../api.js";
import { ask, formDialog } from "../components/dialog.js";
import { attempt } from "../components/toast.js";
import { button, h, uniqueId } from "../dom.js";
import { state } from "../state.js";
import { refreshMarks } from "../sync.js";
import { valuesDialog } from "./profiles.js";

function nameDialog(preset) {
    const field = (label, value) => {
        const id = uniqueId("text");
        const input = h("input", { type: "text", id, class: "wide", maxlength: "200", autocomplete: "off" });
        input.value = value ?? "";
        return { input, element: h("div", { class: "form-line" }, h("label", { for: id }, label), input) };
    };
    const name = field("Name", preset.name);
    const desc = field("What it is for", preset.desc);
    return formDialog(`Preset ${preset.number}`, [name.element, desc.element], "Keep", () => api.replace("presets", String(preset.number), { name: name.input.value, desc: desc.input.value }));
}

async function run(preset, action, question, yes, done) {
    if (!(await ask(`Preset ${preset.number}${preset.name ? `, ${preset.name}` : ""}`, question, yes)))
        return;
    await attempt(async () => {
        await api.create("presets", String(preset.number), { action });
        await refreshMarks();
    }, done);
}

const load = (preset) => run(preset, "load", "Its values are set. They wait to be committed.", "Load", "Loaded. Review and commit what has changed.");
const apply = (preset) => run(preset, "load_apply", "Its values are set, saved and applied at once.", "Load and apply", "Loaded and applied.");
const store = (preset) => run(preset, "store", "The values that run now replace what it holds.", "Store", "Stored.");

async function show(preset) {
    const found = await attempt(() => api.list(`presets/${preset.number}`));
    if (found)
        valuesDialog(`Preset ${preset.number}`, found.values);
}

function line(preset, current, after) {
    const then = (action) => async () => {
        await action(preset);
        await after();
    };
    return h("li", { class: "list-line", "data-preset": String(preset.number) }, h("span", { class: "entry-number" }, String(preset.number)),
        h("div", { class: "list-main" }, h("b", {}, preset.name || "Without a name"), preset.number === current && [" ", h("span", { class: "chip good" }, "current")], preset.desc && h("div", { class: "help" }, preset.desc)),
        h("div", { class: "list-actions" }, button("Show", () => show(preset), { kind: "small quiet" }), button("Name", then(nameDialog), { kind: "small quiet" }),
            button("Store", then(store), { kind: "small" }), button("Load", then(load), { kind: "small" }), button("Load and apply", then(apply), { kind: "small" })));
}

export async function presetsPage(place, id, current) {
    const list = h("ul", { class: "card list" });
    async function read() {
        const answer = await api.list("presets");
        list.replaceChildren(...answer.presets.map((preset) => line(preset, answer.current, read)));
    }
    await read();
    if (!current())
        return () => {};
    place.replaceChildren(h("div", { class: "page-main" }, h("h1", { tabindex: "-1" }, "Presets"),
        h("p", { class: "help" }, "Numbered sets of values, to be recalled with one click, from the front panel, or by a script."), list));
    return state.on("event", (event) => event === "preset" && read().catch(() => {}));
}
