// The appliance moves to another address: leads there.

import { h } from "../dom.js";
import { minutes } from "../words.js";
import { dialog } from "./dialog.js";

/** Makes ready to look for it elsewhere. To be called while this page still has the appliance. */
export function prepareToLeave() {
    const frame = h("iframe", { src: "probe.html", hidden: true, "aria-hidden": "true", title: "Looks for the new address" });
    document.body.append(frame);
    return frame;
}

function look(frame, to, found) {
    const listener = ({ origin, source, data }) => {
        if (origin === location.origin && source === frame.contentWindow && data?.reached === to)
            found();
    };
    window.addEventListener("message", listener);
    frame.contentWindow?.postMessage({ probe: to }, location.origin);
}

function countdown(seconds) {
    const until = Date.now() + 1000 * seconds;
    const element = h("b", { class: "numeric" }, minutes(seconds));
    const timer = setInterval(() => {
        element.textContent = minutes((until - Date.now()) / 1000);
        if (!element.isConnected || Date.now() > until)
            clearInterval(timer);
    }, 500);
    return element;
}

/** Says where the appliance is now and goes there as soon as it answers. seconds: until all is undone. */
export function leave({ to }, frame, seconds) {
    if (!to) {
        dialog("The appliance gets another address", { content: [
            h("p", {}, "Find it in the network (its announcement, or the list of your DHCP server), log in there, and confirm the change that waits."),
            h("p", {}, "Unless somebody does within ", countdown(seconds), " it is undone by itself, and the appliance is back here.")] });
        return;
    }
    const status = h("p", { class: "loading", role: "status" }, "Looking for the appliance at its new address …");
    const link = h("a", { class: "button primary", href: to }, `Open ${to}`);
    dialog("The appliance moves", { content: [
        h("p", {}, "It will be at ", h("a", { href: to }, to), ". Log in there: the change waits for you to confirm it. Unless somebody does within ",
            countdown(seconds), " all is undone, and the appliance is back here."), status], actions: [link] });
    link.focus();
    look(frame, to, () => {
        status.textContent = "It answers. Going there …";
        status.classList.remove("loading");
        setTimeout(() => location.assign(to), 1200);
    });
}
