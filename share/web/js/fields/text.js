import { h } from "../dom.js";

const HINTS = [
    [/ip_?prefix/, "such as 192.0.2.1/24"], [/ip6address(?!,)/, "such as 2001:db8::1"], [/(^|,)ipaddress/, "such as 192.0.2.1"], [/submask/, "such as 255.255.255.0"],
    [/macaddress/, "such as 00:11:22:33:44:55"], [/address_list|host_list/, "Several, with blanks between"], [/domainname_list/, "Several, with blanks between"],
    [/timecode/, "such as 20260131T12:00:00"], [/\burl\b/, "https://"],
];
const NARROW = /(^|,)(ipaddress|submask|macaddress|timecode|multicast_ipaddress|hexadecimal)\b/;

/** A line of text: names, addresses, and all else. */
export function textField(api, ids, changed) {
    const type = api.type ?? "";
    const input = h("input", {
        type: "text", id: ids.id, "aria-describedby": ids.describedby, autocomplete: "off", spellcheck: "false", autocapitalize: "off",
        class: NARROW.test(type) ? "narrow" : "wide", placeholder: HINTS.find(([pattern]) => pattern.test(type))?.[1],
        input: () => changed(input.value),
    });
    return {
        element: input,
        input,
        set: (text) => (input.value = text),
        lock: (locked) => (input.readOnly = locked),
    };
}
