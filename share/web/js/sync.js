// Keeps the state like the appliance: reads it after log-in, and takes what events tell.

import { api, Problem } from "./api.js";
import { events } from "./events.js";
import { health } from "./health.js";
import { cover } from "./names.js";
import { setApis, setMarks, setValues, state } from "./state.js";
import { label } from "./words.js";

const GATHER_FOR = 120; // ms; a commit brings many events
const VALUE_EVENTS = new Set(["set", "default", "revert", "reload", "save", "apply"]);
const MARK_EVENTS = new Set([...VALUE_EVENTS, "commit", "confirm", "rollback", "factory_reset"]);

let timer = 0;
let all = null;

/** Pages for who may not read the menu, or where there is none: one for each top group. */
function pagesOfGroups() {
    const tops = new Set([...state.apis.keys()].map((name) => name.split(".")[0]));
    return [...tops].map((top) => ({ id: top, title: label(top), load: [top], edit: [top] }));
}

async function loadMenu() {
    const menu = await api.menu().catch((error) => {
        if (error instanceof Problem && error.status !== 401)
            return { pages: [] };
        throw error;
    });
    state.firstRun = Boolean(menu.firstrun);
    state.pages = menu.pages.length > 0 ? menu.pages : pagesOfGroups();
    state.header = (menu.header ?? []).filter((name) => state.apis.has(name));
}

/** Reads what every page needs. */
export async function loadAll() {
    const [described, marks] = await Promise.all([api.describe(), api.state()]);
    setApis(described.apis);
    await loadMenu();
    setMarks(marks);
    loadSettings();
}

/** All settings, so that pages are there at once. What is read from the system is read by the page that shows it. */
function loadSettings() {
    const names = [...state.apis.values()].filter((one) => !one.isStatus && one.readable !== false).map((one) => one.name);
    all = loadValues(names).catch(() => null);
    return all;
}

/** Reads these values. */
export async function loadValues(names) {
    if (names.length === 0)
        return;
    const { values } = await api.values(cover(names, state.apis));
    setValues(values);
}

/** Values that a page needs: at once where they are known. */
export async function needValues(names) {
    if (names.some((name) => !state.values.has(name)) && all)
        await all;
    const missing = names.filter((name) => !state.values.has(name));
    if (missing.length > 0)
        await loadValues(missing);
}

export async function refreshMarks() {
    setMarks(await api.state());
}

function refreshSoon() {
    clearTimeout(timer);
    timer = setTimeout(() => refreshMarks().catch(() => {}), GATHER_FOR);
}

/** Reads everything again: events were missed. */
async function refreshAll() {
    if (!state.session)
        return;
    const session = await api.session().catch(() => state.session);
    if (session && state.session && session.user !== state.session.user)
        return state.emit("another", session);
    await Promise.all([loadSettings(), refreshMarks()]).catch(() => {});
    state.emit("refreshed");
}

function takeEvent({ event, payload = "" }) {
    const equals = payload.indexOf("=");
    const name = payload.slice(0, equals);
    if (VALUE_EVENTS.has(event) && state.apis.has(name) && !state.apis.get(name).secret)
        setValues({ [name]: payload.slice(equals + 1) });
    if (MARK_EVENTS.has(event))
        refreshSoon();
    if (event === "factory_reset")
        refreshAll();
    state.emit("event", event, payload);
}

events.on("event", takeEvent);
events.on("reset", refreshAll);
events.on("again", refreshAll);
events.on("ended", () => state.session && api.session().catch((error) => {
    if (error instanceof Problem && error.status === 401)
        state.emit("over");
}));
health.on("state", (now, before) => before === "lost" && refreshAll());
