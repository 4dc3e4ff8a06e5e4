// Settings as a file: out of the appliance, and in.

import { api } from "../api.js";
import { changeTable } from "../components/changes.js";
import { told, toast } from "../components/toast.js";
import { h, uniqueId } from "../dom.js";
import { icon } from "../icons.js";
import { state, waiting } from "../state.js";
import { refreshMarks } from "../sync.js";
import { plural } from "../words.js";

const MOST = 4 * 1024 * 1024; // bytes that the daemon takes

const MODES = [["0", "Settings, without passwords"], ["2", "Settings with passwords, in clear: keep the file safe"], ["1", "Settings and what is read from the system"]];

function exportCard() {
    const id = uniqueId("mode");
    const link = h("a", { class: "button primary", download: true, href: api.exportLink("0") }, icon("download"), h("span", {}, "Export"));
    const mode = h("select", { id, change: () => link.setAttribute("href", api.exportLink(mode.value)) }, MODES.map(([value, text]) => h("option", { value }, text)));
    return h("section", { class: "card" }, h("h2", {}, "Export"), h("div", { class: "card-text" },
        h("p", { class: "help" }, "A file with all settings that you may see. It can be imported here or on another unit."),
        h("div", { class: "form-line" }, h("label", { for: id }, "What is in it"), h("span", { class: "select-field" }, mode)), link));
}

function difference(before) {
    const changed = [...state.modified].filter(([name]) => !before.has(name));
    return changed.map(([name, from]) => ({ name, from, to: state.values.get(name) ?? null }));
}

function importCard() {
    const id = uniqueId("file");
    const result = h("div", { role: "status" });
    const file = h("input", { type: "file", id, required: true, accept: ".hdf,.txt,text/plain" });
    const send = h("button", { type: "submit", class: "button primary" }, icon("upload"), h("span", {}, "Import"));
    const say = (kind, text, more) => result.replaceChildren(h("p", { class: `notice ${kind}` }, icon(kind ? "warning" : "info"), h("span", {}, text)), more ?? "");
    async function take() {
        const chosen = file.files[0];
        if (chosen.size > MOST)
            return say("bad", "The file is larger than 4 MiB; the appliance takes no such file.");
        const before = new Set(waiting().own);
        const answer = await api.import(chosen);
        await refreshMarks();
        const changes = difference(before);
        const refused = answer?.errors ?? [];
        say("", changes.length > 0 ? `${plural(changes.length, "value")} set from ${chosen.name}. Nothing is saved yet: review and commit below, or discard.` : `${chosen.name} was taken; no value is another one.`,
            h("div", { class: "timeline" }, changes.length > 0 && changeTable(changes), refused.length > 0 && h("ul", { class: "error-list" }, refused.map(({ name, detail }) => h("li", {}, icon("warning"), h("span", {}, `${name}: ${detail}`))))));
        toast("Imported.");
    }
    const form = h("form", { class: "card-text", submit: async (event) => {
        event.preventDefault();
        send.disabled = true;
        try {
            await take();
        } catch (error) {
            say("bad", told(error));
        } finally {
            send.disabled = false;
        }
    } },
    h("p", { class: "help" }, "The values of the file are set as if you had typed them, as far as you may. They wait to be committed, so you can look at them first."),
    h("div", { class: "form-line" }, h("label", { for: id }, "File"), file), send, result);
    return h("section", { class: "card" }, h("h2", {}, "Import"), form);
}

export async function transferPage(place) {
    place.replaceChildren(h("div", { class: "page-main" }, h("h1", { tabindex: "-1" }, "Export and import"), exportCard(), importCard()));
    return () => {};
}
