// Sending what is pending: what was edited here, and what the own session has set before.

import { api } from "./api.js";
import { discard, draftValues, state, typed, waiting } from "./state.js";
import { refreshMarks } from "./sync.js";

/** What a commit takes: drafts, and what waits of the own session as it is now. Secrets that wait have no value to name. */
export function pendingValues() {
    const own = waiting().own.filter((name) => !state.apis.get(name)?.secret && state.values.get(name) !== null && state.values.has(name));
    return { ...Object.fromEntries(own.map((name) => [name, typed(name, state.values.get(name))])), ...draftValues() };
}

/** Something waits that no plan can name. */
export function secretsWait() {
    return waiting().own.filter((name) => state.apis.get(name)?.secret);
}

export function plan() {
    return api.plan({ values: pendingValues() });
}

/** Keeps what was edited in the daemon, without files and actions. */
export async function setOnly() {
    const sent = Object.keys(draftValues());
    await api.set(draftValues());
    discard(sent);
    await refreshMarks();
}

/** Commits it all. What waits of the own session is taken with it, so drafts join it first. */
export async function commit({ confirm, message }) {
    const sent = Object.keys(draftValues());
    const change = { ...(confirm && { confirm }), ...(message && { message }) };
    let answer;
    if (waiting().own.length === 0)
        answer = await api.commit({ values: draftValues(), ...change });
    else {
        if (sent.length > 0)
            await api.set(draftValues());
        answer = await api.commit(change);
    }
    discard(sent);
    await refreshMarks();
    return answer;
}
