// What is known of the appliance, and what was edited here and is not sent yet. Tells "pending", "session", "commit" and, for
// each setting by its name, "setting NAME" when something about it changed.

import { Emitter } from "./emitter.js";

function empty() {
    return {
        session: null, apis: new Map(), pages: [], header: [], values: new Map(), drafts: new Map(), errors: new Map(),
        modified: new Map(), unapplied: new Map(), own: new Set(), others: new Map(), commit: null, restart: false,
    };
}

export const state = Object.assign(new Emitter(), empty());

/** Forgets everything: somebody else may log in now. */
export function forget() {
    Object.assign(state, empty());
}

/** A value as text, as the daemon has it; null stays, for what may not be read. */
export function text(value) {
    if (value === null || value === undefined)
        return null;
    return value === true ? "1" : value === false ? "0" : String(value);
}

/** A text as the API wants it. What is no number goes as it is, and the daemon says what is wrong. */
export function typed(name, value) {
    const kind = state.apis.get(name)?.kind;
    if (kind === "boolean" && (value === "0" || value === "1"))
        return value === "1";
    const plain = /^-?(0|[1-9]\d{0,14})(\.\d{1,9})?$/.test(value);
    return (kind === "integer" || kind === "number") && plain && String(Number(value)) === value ? Number(value) : value;
}

function touch(name) {
    state.emit(`setting ${name}`, name);
}

export function setApis(list) {
    state.apis = new Map(list.map((one) => [one.name, { ...one, isStatus: Boolean(one.status) }]));
}

/** Takes values that were read. A draft that is what the appliance has by now is none any more. */
export function setValues(values) {
    let pending = false;
    for (const [name, value] of Object.entries(values)) {
        const now = text(value);
        if (state.values.has(name) && state.values.get(name) === now)
            continue;
        state.values.set(name, now);
        if (state.drafts.has(name) && state.drafts.get(name).text === now && !state.apis.get(name)?.secret) {
            state.drafts.delete(name);
            pending = true;
        }
        touch(name);
    }
    if (pending)
        state.emit("pending");
}

function texts(object) {
    return new Map(Object.entries(object ?? {}).map(([name, value]) => [name, text(value)]));
}

/** Takes what the appliance says about pending changes. */
export function setMarks({ modified, unapplied, own, others, commit, restart }) {
    const before = [state.modified, state.unapplied, state.own];
    Object.assign(state, { modified: texts(modified), unapplied: texts(unapplied), own: new Set(own), others: texts(others), restart: restart?.length > 0 });
    const names = new Set([...before, state.modified, state.unapplied, state.own].flatMap((one) => [...one.keys()]));
    names.forEach(touch);
    state.commit = commit ? { ...commit, until: Date.now() + 1000 * commit.seconds_left } : null;
    state.emit("commit");
    state.emit("pending");
}

export function setErrors(errors) {
    const names = new Set([...state.errors.keys(), ...errors.keys()]);
    state.errors = new Map(errors);
    names.forEach(touch);
    state.emit("errors");
}

/** A setting was edited here. */
export function edit(name, value) {
    const draft = state.drafts.get(name);
    const now = state.values.get(name) ?? null;
    if (value === now || (value === "" && state.apis.get(name)?.secret && now !== null && !draft))
        state.drafts.delete(name);
    else
        state.drafts.set(name, { text: value, from: draft ? draft.from : now });
    state.errors.delete(name);
    touch(name);
    state.emit("pending");
}

/** Gives up what was edited here: of these names, or all. */
export function discard(names = [...state.drafts.keys()]) {
    for (const name of names) {
        state.drafts.delete(name);
        state.errors.delete(name);
        touch(name);
    }
    state.emit("pending");
}

/** What a setting has in its field: what was edited, else what the appliance has. */
export function shown(name) {
    return state.drafts.get(name)?.text ?? state.values.get(name) ?? "";
}

/** What there is to say about a setting. */
export function marksOf(name) {
    const draft = state.drafts.get(name);
    const modified = state.modified.has(name);
    const unapplied = state.unapplied.has(name);
    return {
        edited: Boolean(draft),
        was: draft?.from ?? null,
        conflict: Boolean(draft) && (state.values.get(name) ?? null) !== draft.from,
        modified, unapplied,
        saved: modified ? state.modified.get(name) : null,
        running: unapplied ? state.unapplied.get(name) : null,
        others: (modified || unapplied) && !state.own.has(name),
        by: state.others.get(name) || "someone else",
        error: state.errors.get(name) ?? null,
    };
}

/** Names with changes that wait in the daemon: own ones and those of others. */
export function waiting() {
    const names = [...new Set([...state.modified.keys(), ...state.unapplied.keys()])];
    return { own: names.filter((name) => state.own.has(name)), others: names.filter((name) => !state.own.has(name)) };
}

/** What was edited here, as the API takes it. */
export function draftValues() {
    return Object.fromEntries([...state.drafts].map(([name, { text: value }]) => [name, typed(name, value)]));
}
