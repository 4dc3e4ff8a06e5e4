// Who may log in, in which group, and with which password.

import { api } from "../api.js";
import { ask, formDialog } from "../components/dialog.js";
import { attempt } from "../components/toast.js";
import { button, h, uniqueId } from "../dom.js";
import { passwordPair } from "../fields/password.js";
import { icon } from "../icons.js";
import { state } from "../state.js";

const GROUPS = { 0: "Maker", 1: "Administrators", 2: "Operators", 3: "Viewers" };

const SELF = "Another administrator has to do this: it is you.";

function groupName(number) {
    return GROUPS[number] ?? `Group ${number}`;
}

function groupField(groups, chosen) {
    const id = uniqueId("group");
    const select = h("select", { id }, groups.map((number) => h("option", { value: String(number), selected: String(number) === String(chosen) }, groupName(number))));
    return { select, element: h("div", { class: "form-line" }, h("label", { for: id }, "Group"), h("span", { class: "select-field" }, select)) };
}

function passwordField() {
    const id = uniqueId("password");
    let given = "";
    let same = true;
    const pair = passwordPair({ id }, (text) => {
        given = text;
        same = true;
    }, () => (same = false));
    return {
        element: h("div", { class: "form-line" }, h("label", { for: id }, "New password"), pair.element),
        read() {
            if (!same)
                throw new Error("These two are not the same.");
            if (given === "")
                throw new Error("Give a password.");
            return given;
        },
    };
}

function addDialog(groups) {
    const id = uniqueId("name");
    const name = h("input", { type: "text", id, class: "wide", required: true, autocapitalize: "off", autocomplete: "off", spellcheck: "false" });
    const group = groupField(groups, 3);
    const word = passwordField();
    return formDialog("Add a user", [h("div", { class: "form-line" }, h("label", { for: id }, "User"), name), group.element, word.element], "Add",
        () => api.replace("users", name.value.trim(), { group: group.select.value, password: word.read() }));
}

function passwordDialog(user) {
    const word = passwordField();
    return formDialog(`New password of ${user.name}`, [word.element], "Change", () => api.replace("users", user.name, { password: word.read() }));
}

function groupDialog(user, groups) {
    const group = groupField(groups, user.group);
    return formDialog(`Group of ${user.name}`, [group.element], "Change", () => api.replace("users", user.name, { group: group.select.value }));
}

async function remove(user) {
    if (await ask(`Remove ${user.name}?`, "The user cannot log in any more, and open sessions end.", "Remove", { kind: "danger" }))
        return attempt(() => api.remove("users", user.name).then(() => true), `${user.name} is removed.`);
    return undefined;
}

function line(user, groups, after) {
    const own = user.name === state.session.user;
    const then = (action) => async () => (await action()) && after();
    return h("li", { class: "list-line", "data-user": user.name },
        h("div", { class: "list-main" }, h("b", {}, user.name), own && h("span", { class: "help" }, " (you)"), h("div", { class: "help" }, groupName(user.group))),
        h("div", { class: "list-actions" },
            button("Password", then(() => passwordDialog(user)), { kind: "small" }),
            button("Group", then(() => groupDialog(user, groups)), { kind: "small", disabled: own, title: own ? SELF : null }),
            button("Remove", then(() => remove(user)), { kind: "small quiet", disabled: own, title: own ? SELF : null })));
}

export async function accountsPage(place, id, current) {
    const list = h("ul", { class: "card list" });
    let groups = [];
    async function load() {
        const answer = await api.list("users");
        groups = (answer.groups ?? []).map(({ group }) => group);
        list.replaceChildren(...answer.users.map((user) => line(user, groups, load)));
    }
    await load();
    if (!current())
        return () => {};
    place.replaceChildren(h("div", { class: "page-main" },
        h("div", { class: "page-head" }, h("h1", { tabindex: "-1" }, "Log-ins and passwords"),
            button("Add a user", async () => (await addDialog(groups)) && load(), { kind: "primary", symbol: icon("plus") })),
        h("p", { class: "help" }, "Changes here count at once; they need no commit."), list));
    return state.on("event", (event) => event === "user" && load().catch(() => {}));
}
