// The address behind "#" tells the page: "#/page/network/Network.hostname".

let show = () => {};

export function parts() {
    return location.hash.replace(/^#\/?/, "").split("/").filter(Boolean).map((part) => {
        try {
            return decodeURIComponent(part);
        } catch {
            return part;
        }
    });
}

/** The address of a page, for links. */
export function href(...path) {
    return `#/${path.map(encodeURIComponent).join("/")}`;
}

export function go(...path) {
    const to = href(...path);
    if (location.hash === to)
        show(parts());
    else
        location.hash = to;
}

/** Who shows pages. Called for each change of the address. */
export function startRouter(listener) {
    show = listener;
    window.addEventListener("hashchange", () => show(parts()));
}
