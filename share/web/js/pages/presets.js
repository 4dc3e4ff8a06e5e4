// Numbered sets of the values that the appliance's template names.

import { api } from "../api.js";
import { ask, formDialog } from "../components/dialog.js";
import { attempt, toast } from "../components/toast.js";
import { button, h, uniqueId } from "../dom.js";
import { icon } from "../icons.js";
import { state } from "../state.js";
import { refreshMarks } from "../sync.js";
import { valuesDialog } from "./profiles.js";

const MOST = 20;

function storeDialog(presets) {
    const id = uniqueId("number");
    const known = new Map(presets.map(({ number, name }) => [number, name]));
    const numbers = Array.from({ length: MOST }, (_, at) => at + 1);
    const free = numbers.find((number) => !known.has(number)) ?? 1;
    const select = h("select", { id }, numbers.map((number) => h("option", { value: String(number), selected: number === free }, `${number}: ${known.has(number) ? known.get(number) || "without a name" : "free"}`)));
    return formDialog("Store a preset", [h("p", { class: "help" }, "The values that run now, of the settings that presets are about."),
        h("div", { class: "form-line" }, h("label", { for: id }, "Number"), h("span", { class: "select-field" }, select))], "Store", () => api.replace("presets", select.value, {}));
}

async function run(preset, action, question, yes, done) {
    if (!(await ask(`Preset ${preset.number}${preset.name ? `, ${preset.name}` : ""}`, question, yes)))
        return;
    await attempt(async () => {
        await action(String(preset.number));
        await refreshMarks();
    }, done);
}

const load = (preset) => run(preset, (number) => api.create("presets", number, {}), "Its values are set. They wait to be committed.", "Load", "Loaded. Review and commit what has changed.");
const apply = (preset) => run(preset, (number) => api.create("presets", number, { apply: true }), "Its values are set, saved and applied at once.", "Load and apply", "Loaded and applied.");
const store = (preset) => run(preset, (number) => api.replace("presets", number, {}), "The values that run now replace what it holds.", "Store", "Stored.");

function rename(preset) {
    const field = (name) => h("input", { type: "text", id: uniqueId(name), value: preset[name] ?? "" });
    const [name, desc] = [field("name"), field("desc")];
    return formDialog(`Preset ${preset.number}`, [
        h("div", { class: "form-line" }, h("label", { for: name.id }, "Name"), name),
        h("div", { class: "form-line" }, h("label", { for: desc.id }, "Description"), desc),
    ], "Keep", () => api.amend("presets", String(preset.number), { name: name.value, desc: desc.value }));
}

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
        h("div", { class: "list-actions" }, button("Show", () => show(preset), { kind: "small quiet" }), button("Name", then(rename), { kind: "small quiet" }),
            button("Store", then(store), { kind: "small" }), button("Load", then(load), { kind: "small" }), button("Load and apply", then(apply), { kind: "small" })));
}

export async function presetsPage(place, id, current) {
    const list = h("ul", { class: "card list" });
    let presets = [];
    async function read() {
        const answer = await api.list("presets");
        presets = answer.presets;
        list.replaceChildren(...(presets.length > 0 ? presets.map((preset) => line(preset, answer.current?.number, read)) : [h("li", { class: "list-line" }, "There is no preset yet.")]));
    }
    await read();
    if (!current())
        return () => {};
    place.replaceChildren(h("div", { class: "page-main" }, h("div", { class: "page-head" }, h("h1", { tabindex: "-1" }, "Presets"),
            button("Store a preset", async () => (await storeDialog(presets)) && (toast("Stored."), read()), { kind: "primary", symbol: icon("plus") })),
        h("p", { class: "help" }, "Numbered sets of values, to be recalled with one click, from the front panel, or by a script."), list));
    return state.on("event", (event) => event === "preset" && read().catch(() => {}));
}
