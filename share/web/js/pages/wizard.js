// The first start: one step after the other, and all of it committed at the end.

import { api } from "../api.js";
import { groupCard } from "../components/groupcard.js";
import { hasOwnPending } from "../components/pendingbar.js";
import { review } from "../components/review.js";
import { attempt, toast } from "../components/toast.js";
import { button, h } from "../dom.js";
import { icon } from "../icons.js";
import { byCard, byGroup, commonGroup, expand } from "../names.js";
import { go } from "../router.js";
import { state } from "../state.js";
import { needValues } from "../sync.js";

async function finish() {
    if (hasOwnPending() && !(await review()))
        return;
    if (await attempt(() => api.wizardDone().then(() => true))) {
        state.firstRun = false;
        toast("The unit is set up.");
        go();
    }
}

async function skip() {
    if (await attempt(() => api.wizardDone().then(() => true), "The wizard stays in the menu at the side.")) {
        state.firstRun = false;
        go();
    }
}

function settingsOf(page) {
    const names = page.edit?.length > 0 ? page.edit : page.load;
    return expand(names, state.apis).filter((name) => !state.apis.get(name).isStatus && state.apis.get(name).readable !== false);
}

function stepList(steps, at, open) {
    return h("ol", { class: "steps", "aria-label": "Steps" }, steps.map((step, index) => h("li", { class: index < at ? "is-done" : "" },
        h("button", { type: "button", "aria-current": index === at ? "step" : null, "aria-label": step.title, title: step.title, click: () => open(index) }, h("span", {}, step.title)))));
}

export async function wizardPage(place, id, current) {
    const { pages } = await api.wizard();
    const steps = pages.filter((page) => settingsOf(page).length > 0);
    await needValues([...new Set(steps.flatMap(settingsOf))]);
    if (!current())
        return () => {};
    let forget = () => {};
    function open(at) {
        forget();
        const step = steps[at];
        const groups = byGroup(settingsOf(step));
        const base = commonGroup(groups.map(([group]) => group));
        const cards = byCard(groups, base).map(([card, members]) => groupCard(card, members, base));
        forget = () => cards.forEach((card) => card.forget());
        const last = at === steps.length - 1;
        place.replaceChildren(h("div", { class: "page-main wizard" },
            h("div", { class: "page-head" }, h("h1", { tabindex: "-1" }, "Set up the unit"), button("Skip the wizard", skip, { kind: "quiet" })),
            stepList(steps, at, open),
            h("h2", { tabindex: "-1" }, `${at + 1} of ${steps.length}: ${step.title}`),
            cards.map((card) => card.element),
            h("div", { class: "wizard-foot" }, button("Back", () => open(at - 1), { disabled: at === 0 }),
                last ? button("Review and finish", finish, { kind: "primary", symbol: icon("check") }) : button("Next", () => open(at + 1), { kind: "primary" }))));
        window.scrollTo(0, 0);
        place.querySelector(".page-main > h2").focus({ preventScroll: true });
    }
    if (steps.length === 0)
        place.replaceChildren(h("div", { class: "page-main" }, h("h1", { tabindex: "-1" }, "Set up the unit"), h("p", { class: "empty" }, "This appliance has no set-up wizard.")));
    else
        open(0);
    return () => forget();
}
