// Begins: who is logged in, what there is, which page.

import "./theme.js";
import "./checks.js";
import { api, onSessionOver, Problem } from "./api.js";
import * as events from "./events.js";
import { h, button } from "./dom.js";
import { health } from "./health.js";
import { startKeyboard } from "./keyboard.js";
import { go, parts, startRouter } from "./router.js";
import { forget, state } from "./state.js";
import { loadAll } from "./sync.js";
import { showAlone, showShell } from "./shell.js";
import { loginPage } from "./pages/login.js";
import { showPage } from "./pages/index.js";
import { hasOwnPending } from "./components/pendingbar.js";
import { review } from "./components/review.js";
import { attempt, toast, told } from "./components/toast.js";

let shell = null;
let leavePage = () => {};
let shownPage = 0;

async function route(path) {
    if (!shell)
        return;
    const mine = ++shownPage;
    const current = () => mine === shownPage && shell !== null;
    shell.hideNav();
    shell.nav.select(`/${path.length > 0 ? path.slice(0, 2).join("/") : `page/${state.pages.find((page) => !page.external)?.id}`}`);
    leavePage();
    leavePage = () => {};
    try {
        const leave = await showPage(shell.main, path, current);
        if (!current())
            return leave();
        leavePage = leave;
        if (!path[2]) {
            window.scrollTo(0, 0);
            if (mine > 1)
                shell.main.querySelector("h1")?.focus({ preventScroll: true });
        }
    } catch (error) {
        if (!current())
            return;
        leavePage = health.on("state", (now) => now === "well" && route(path));
        shell.main.replaceChildren(h("div", { class: "page-main" }, h("h1", {}, "This page could not be read"), h("p", { class: "empty" }, told(error)),
            button("Try again", () => route(path), { kind: "primary" })));
    }
}

function closeShell() {
    leavePage();
    leavePage = () => {};
    shell?.forget();
    shell = null;
    shownPage += 1;
    events.end();
}

function showLogin(why, user) {
    closeShell();
    document.querySelectorAll("dialog[open]").forEach((one) => one.close());
    showAlone(loginPage(why, user, start));
}

/** The session is over. What was edited stays here, for the same user. */
function sessionEnded() {
    if (!shell)
        return;
    const { user } = state.session;
    state.session = null;
    showLogin("Your session is over. Log in to go on where you were.", user);
    state.lastUser = user;
}

/** In another tab somebody else has logged in, and is who asks from here, too. */
function becameAnother(session) {
    closeShell();
    toast(`${session.user} is logged in with this browser now.`, "note");
    start(session);
}

async function logOut() {
    if (await attempt(() => api.logout().then(() => true))) {
        forget();
        showLogin();
    }
}

async function start(session) {
    if (state.lastUser !== session.user)
        forget();
    state.lastUser = session.user;
    state.session = session;
    showAlone(h("p", { class: "starting" }, "Reading the settings …"));
    try {
        await loadAll();
    } catch (error) {
        return couldNotStart(error);
    }
    shell = showShell(logOut);
    state.emit("session");
    events.start();
    await (parts().length === 0 && state.firstRun && session.rights?.administrator ? go("wizard") : route(parts()));
}

function couldNotStart(error) {
    if (error instanceof Problem && error.status === 401)
        return showLogin();
    const again = () => begin();
    const stop = health.on("state", (now) => now === "well" && (stop(), again()));
    showAlone(h("main", { class: "login" }, h("div", { class: "login-card" }, h("h1", {}, "The appliance does not answer"), h("p", { class: "help" }, error.message),
        button("Try again", () => (stop(), again()), { kind: "primary" }))));
}

async function begin() {
    try {
        await start(await api.session());
    } catch (error) {
        if (error instanceof Problem && error.status === 401)
            showLogin();
        else
            couldNotStart(error);
    }
}

window.addEventListener("beforeunload", (event) => {
    if (state.drafts.size > 0)
        event.preventDefault();
});
onSessionOver(sessionEnded);
state.on("over", sessionEnded);
state.on("another", becameAnother);
startRouter(route);
startKeyboard({
    "/": () => shell?.search.focus(),
    Escape: () => shell?.closeNav() ?? false,
    "Ctrl+Enter": () => (shell && hasOwnPending() ? void review() : false),
});
begin();
