// Names of APIs and their groups.

import { parent } from "./words.js";

/** Whether the API is the name, or is below it. */
export function isBelow(api, name) {
    return api === name || api.startsWith(`${name}.`);
}

/** All of these APIs (a Map by name) that one of the names means, in the order of the model. */
export function expand(names, apis) {
    const wanted = new Set(names);
    const found = [];
    for (const name of apis.keys()) {
        for (let at = name; at; at = parent(at)) {
            if (wanted.has(at)) {
                found.push(name);
                break;
            }
        }
    }
    return found;
}

/** The shortest list of names and groups that means just these of all APIs. */
export function cover(wanted, apis) {
    const outside = new Set();
    const inside = new Set(wanted);
    for (const name of apis.keys()) {
        if (!inside.has(name)) {
            for (let at = name; at; at = parent(at))
                outside.add(at);
        }
    }
    const list = new Set();
    for (const name of inside) {
        let top = name;
        for (let at = parent(name); at && !outside.has(at); at = parent(at))
            top = at;
        list.add(top);
    }
    return [...list];
}

/** The APIs by the group in which they stand: [[group, [name ...]] ...]. */
export function byGroup(names) {
    const groups = new Map();
    for (const name of names) {
        const last = name.slice(name.lastIndexOf(".") + 1);
        const group = /^\d+$/.test(last) ? parent(parent(name)) : parent(name);
        if (!groups.has(group))
            groups.set(group, []);
        groups.get(group).push(name);
    }
    return [...groups];
}

// The parts of a group; a number belongs to the part before it.
function levels(group) {
    return group.split(/\.(?!\d+(?:\.|$))/);
}

/** Groups that belong together on a page, two levels below what is common to all: [[card, [[group, names] ...]] ...]. */
export function byCard(groups, base) {
    const depth = (base ? levels(base).length : 0) + 2;
    const cards = new Map();
    for (const entry of groups) {
        const card = levels(entry[0]).slice(0, depth).join(".");
        if (!cards.has(card))
            cards.set(card, []);
        cards.get(card).push(entry);
    }
    return [...cards].map(([card, entries]) => [entries.length === 1 ? entries[0][0] : card, entries]);
}

/** What all these groups begin with. */
export function commonGroup(groups) {
    const parts = groups.map((group) => group.split("."));
    const first = parts[0] ?? [];
    const length = first.findIndex((part, at) => parts.some((other) => other[at] !== part));
    return (length < 0 ? first : first.slice(0, length)).join(".");
}
