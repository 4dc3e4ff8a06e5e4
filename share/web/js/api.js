// The appliance's HTTP API. Everything that goes there goes through request().

import { report, watch } from "./health.js";

const BASE = "api/v1";
const GIVE_UP_AFTER = 660_000; // ms; a commit may wait ten minutes for another one

/** What the appliance refused: its own words, and those for single settings. */
export class Problem extends Error {
    constructor(status, body, retryAfter) {
        super(body.detail || body.title || `Error ${status}`);
        this.status = status;
        this.body = body;
        this.name = "Problem";
        this.setting = body.name ?? null;
        this.errors = new Map((body.errors ?? []).map(({ name, detail }) => [name, detail]));
        if (body.name && !this.errors.has(body.name))
            this.errors.set(body.name, this.message);
        this.retryAfter = retryAfter;
    }
}

/** Nobody answered, so nobody knows whether it was done. */
export class Unreachable extends Error {
    constructor() {
        super("The appliance does not answer.");
        this.name = "Unreachable";
    }
}

let sessionOver = () => {};

/** Who is told when an answer says that nobody is logged in. */
export function onSessionOver(listener) {
    sessionOver = listener;
}

async function parse(response) {
    const text = await response.text();
    try {
        return text ? JSON.parse(text) : null;
    } catch {
        return { detail: text.slice(0, 500) };
    }
}

function options(method, body, signal) {
    const init = { method, signal, credentials: "same-origin", cache: "no-store", redirect: "error", headers: { Accept: "application/json" } };
    if (body instanceof Blob) {
        init.headers["Content-Type"] = "text/plain; charset=utf-8";
        init.body = body;
    } else if (body !== undefined) {
        init.headers["Content-Type"] = "application/json";
        init.body = JSON.stringify(body);
    }
    return init;
}

async function answer(response, quiet) {
    report("lost", "gateway", false);
    report("lost", "daemon", response.status === 503 || response.status === 502);
    if (response.ok)
        return response.status === 204 ? null : parse(response);
    const problem = new Problem(response.status, (await parse(response)) ?? {}, Number(response.headers.get("Retry-After")) || 0);
    if (response.status === 401 && !quiet)
        sessionOver();
    throw problem;
}

/** Sends a request. quiet: a 401 is no end of the session (log-in). Throws Problem or Unreachable. */
export async function request(method, path, body, { quiet = false } = {}) {
    const done = watch();
    const limit = AbortSignal.timeout(GIVE_UP_AFTER);
    try {
        return await answer(await fetch(`${BASE}/${path}`, options(method, body, limit)), quiet);
    } catch (error) {
        if (error instanceof Problem)
            throw error;
        report("lost", "gateway", true);
        throw new Unreachable();
    } finally {
        done();
    }
}

function query(parameters) {
    const text = new URLSearchParams(parameters).toString();
    return text ? `?${text}` : "";
}

function named(names) {
    return query(names.map((name) => ["name", name]));
}

function file(name) {
    return encodeURIComponent(name);
}

export const api = {
    session: () => request("GET", "session", undefined, { quiet: true }),
    /** next: in place of a built-in password, which the appliance answers with 403 otherwise. */
    login: (user, password, next) => request("POST", "session", next ? { user, password, new_password: next } : { user, password }, { quiet: true }),
    logout: () => request("DELETE", "session", undefined, { quiet: true }),
    describe: (names = []) => request("GET", `describe${named(names)}`),
    values: (names) => request("GET", `values${named(names)}`),
    state: () => request("GET", "state"),
    menu: () => request("GET", "menu"),
    wizard: () => request("GET", "wizard"),
    wizardDone: () => request("POST", "wizard", { done: true }),
    set: (values) => request("PATCH", "values", { values, mode: "set" }),
    plan: (change) => request("POST", "plan", change),
    commit: (change) => request("POST", "commit", change),
    save: (names) => request("POST", "save", names ? { names } : {}),
    apply: (names) => request("POST", "apply", names ? { names } : {}),
    revert: (names) => request("POST", "revert", names ? { names } : {}),
    confirm: (seconds) => request("POST", "confirm", seconds ? { seconds } : {}),
    abort: () => request("POST", "abort", {}),
    history: (parameters) => request("GET", `history${query(parameters)}`),
    rollback: (change) => request("POST", "rollback", change),
    list: (kind) => request("GET", kind),
    create: (kind, name, body) => request("POST", `${kind}/${file(name)}`, body),
    replace: (kind, name, body) => request("PUT", `${kind}/${file(name)}`, body),
    amend: (kind, name, body) => request("PATCH", `${kind}/${file(name)}`, body),
    remove: (kind, name) => request("DELETE", `${kind}/${file(name)}`),
    exportLink: (mode) => `${BASE}/export${query({ mode })}`,
    import: (document) => request("POST", "import", document),
    eventsLink: `${BASE}/events`,
};
