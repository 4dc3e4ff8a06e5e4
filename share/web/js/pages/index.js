// Which page an address means.

import { state } from "../state.js";
import { title } from "../words.js";
import { accountsPage } from "./accounts.js";
import { historyPage } from "./history.js";
import { missingPage } from "./missing.js";
import { presetsPage } from "./presets.js";
import { profilesPage } from "./profiles.js";
import { settingsPage } from "./settings.js";
import { transferPage } from "./transfer.js";
import { wizardPage } from "./wizard.js";

const OWN = { accounts: accountsPage, history: historyPage, presets: presetsPage, profiles: profilesPage, transfer: transferPage, wizard: wizardPage };

/** Shows the page of the parts of an address at place. current() tells whether the page is still wanted. Returns how to leave it. */
export async function showPage(place, [kind, id, found], current) {
    const first = state.pages.find((page) => !page.external);
    if (kind === undefined && first)
        return settingsPage(place, first, null, current);
    if (kind === "page") {
        const page = state.pages.find((one) => one.id === id && !one.external);
        return page ? settingsPage(place, page, found, current) : missingPage(place);
    }
    if (kind === "group")
        return settingsPage(place, { title: title(id ?? "").join(" › "), load: [id] }, found, current);
    return Object.hasOwn(OWN, kind) ? OWN[kind](place, id, current) : missingPage(place);
}
