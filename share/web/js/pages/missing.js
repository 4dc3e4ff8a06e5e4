import { h } from "../dom.js";

/** A page that is not there. */
export function missingPage(place) {
    place.replaceChildren(h("div", { class: "page-main" }, h("h1", { tabindex: "-1" }, "No such page"),
        h("p", { class: "empty" }, "There is no page at this address. Choose one at the side, or search.")));
    return () => {};
}
