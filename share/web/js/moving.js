// Changes that move the address at which this page is.

import { state } from "./state.js";
import { leaf, parent } from "./words.js";

const HTTP = "Services.HTTP.";

function port() {
    return location.port || (location.protocol === "https:" ? "443" : "80");
}

/** Interfaces whose address is that of this page. */
function isOurs(group) {
    const host = location.hostname.replace(/^\[|\]$/g, "");
    const name = leaf(group);
    const addresses = ["ipaddress", "address"].flatMap((one) =>
        [state.values.get(`${group}.${one}`), state.values.get(`Network.CurrentSettings.Interfaces.${name}.${one}`)]);
    return addresses.some((address) => address && address.split("/")[0] === host);
}

function withHost(host) {
    return `${location.protocol}//${host.includes(":") ? `[${host}]` : host}${location.port ? `:${location.port}` : ""}/`;
}

/** Where the appliance will be when this setting gets this value: an address, "" for one that nobody knows yet, or null for here. */
export function leadsTo(name, value) {
    const old = state.values.get(name);
    if (old === value || old === undefined)
        return null;
    const secure = location.protocol === "https:";
    if ((name === `${HTTP}port` && !secure && old === port()) || (name === `${HTTP}https_port` && secure && old === port()))
        return `${location.protocol}//${location.hostname}:${value}/`;
    if (name === `${HTTP}enable` && value === "0" && state.values.get(`${HTTP}${secure ? "https_port" : "port"}`) === port())
        return "";
    if (!name.startsWith("Network."))
        return null;
    if (leaf(name) === "hostname" && [old, `${old}.local`].includes(location.hostname))
        return withHost(location.hostname.replace(old, value));
    if (!name.startsWith("Network.Interfaces.") || !isOurs(parent(name)))
        return null;
    if (/^(ip)?address$/.test(leaf(name)))
        return value ? withHost(value.split("/")[0]) : "";
    if ((leaf(name) === "ipmode" && value !== "static" && value !== "dhcp-server") || (leaf(name) === "mode" && value === "disabled"))
        return "";
    return null;
}

/** What to say about it at the field, or null. */
export function moved(name, value) {
    const draft = state.drafts.has(name);
    const to = draft ? leadsTo(name, value) : null;
    if (to === null)
        return null;
    return to === "" ? "This page comes over this address, and the appliance will have another one, or none."
        : `This page comes over this address. The appliance will be at ${to}`;
}

/** Of several values: { to: the new address or "" } or null. */
export function moveOf(values) {
    const found = Object.entries(values).map(([name, value]) => leadsTo(name, String(value))).filter((to) => to !== null);
    return found.length === 0 ? null : { to: found.find((to) => to !== "") ?? "" };
}
