import { svg } from "./dom.js";

// Strokes on a 24 by 24 ground.
const PATHS = {
    status: "M3 12h4l3-7 4 14 3-7h4",
    encoder: "M3 7.5A1.5 1.5 0 0 1 4.5 6h9A1.5 1.5 0 0 1 15 7.5v9a1.5 1.5 0 0 1-1.5 1.5h-9A1.5 1.5 0 0 1 3 16.5zM15 11l6-3.5v9L15 13",
    audio: "M4 10v4h3l5 4V6l-5 4zM16 9a4 4 0 0 1 0 6M18.5 6.5a8 8 0 0 1 0 11",
    overlay: "M12 3l9 5-9 5-9-5zM3 13l9 5 9-5",
    decoder: "M3 5h18v11H3zM8 20h8M10 8.5v4l3.5-2z",
    streaming: "M12 12v9M8.5 15.5a5 5 0 1 1 7 0M5.6 18.4a9 9 0 1 1 12.8 0",
    outputs: "M4 12h12M12 7l5 5-5 5M20 4v16",
    recording: "M12 3a9 9 0 1 0 0 18 9 9 0 0 0 0-18zM12 9a3 3 0 1 0 0 6 3 3 0 0 0 0-6z",
    tally: "M9 18h6M10 21h4M12 3a6 6 0 0 0-3.5 10.9V15h7v-1.1A6 6 0 0 0 12 3z",
    bonding: "M9 15l6-6M7 12l-2 2a3.5 3.5 0 0 0 5 5l2-2M12 7l2-2a3.5 3.5 0 0 1 5 5l-2 2",
    network: "M9 3h6v5H9zM3 16h6v5H3zM15 16h6v5h-6zM12 8v4M6 16v-4h12v4",
    routing: "M6 3v12a4 4 0 0 0 4 4h8M15 16l3 3-3 3M6 8h9M12 5l3 3-3 3",
    services: "M4 4h16v6H4zM4 14h16v6H4zM7.5 7h.01M7.5 17h.01",
    security: "M12 3l8 3v6c0 4.5-3.5 7.5-8 9-4.5-1.5-8-4.5-8-9V6zM9 12l2 2 4-4",
    users: "M9 11a3.5 3.5 0 1 0 0-7 3.5 3.5 0 0 0 0 7zM3 20a6 6 0 0 1 12 0M16 4.5a3.5 3.5 0 0 1 0 6.5M17.5 14.5A6 6 0 0 1 21 20",
    monitoring: "M6 9a6 6 0 0 1 12 0c0 6 2.5 7 2.5 7h-17S6 15 6 9M10 20a2.2 2.2 0 0 0 4 0",
    time: "M12 3a9 9 0 1 0 0 18 9 9 0 0 0 0-18zM12 7v5l3.5 2",
    profiles: "M4 6h16M4 12h16M4 18h16M8 4v4M15 10v4M10 16v4",
    presets: "M5 4h14v17l-7-4-7 4z",
    unit: "M3 8h18v9H3zM7 12.5h.01M11 12.5h7M6 17v2M18 17v2",
    maintenance: "M14.5 6.5a4.5 4.5 0 0 1 5.7-2l-2.9 2.9.3 2 2 .3L22 7a4.5 4.5 0 0 1-6 5.5L8 20.5a2 2 0 0 1-3-3l8-8a4.5 4.5 0 0 1 1.5-3z",
    web: "M12 3a9 9 0 1 0 0 18 9 9 0 0 0 0-18zM3 12h18M12 3c5 5 5 13 0 18M12 3c-5 5-5 13 0 18",
    manual: "M5 4h11a3 3 0 0 1 3 3v13H8a3 3 0 0 1-3-3zM5 17a3 3 0 0 1 3-3h11",
    history: "M4 12a8 8 0 1 0 2.5-5.8L4 8.5M4 4v4.5h4.5M12 8v4.5l3 1.5",
    accounts: "M14.5 9.5a4 4 0 1 0-4 4M13.3 10.7L21 18.4V21h-3v-2h-2v-2l-2.7-2.7",
    transfer: "M8 4v12M4 8l4-4 4 4M16 20V8M12 16l4 4 4-4",
    group: "M3 6h7l2 2.5h9V19H3z",
    search: "M10.5 4a6.5 6.5 0 1 0 0 13 6.5 6.5 0 0 0 0-13zM15.5 15.5L21 21",
    menu: "M4 6h16M4 12h16M4 18h16",
    close: "M6 6l12 12M18 6L6 18",
    lock: "M6 11h12v9H6zM8.5 11V8a3.5 3.5 0 0 1 7 0v3",
    undo: "M9 8H4V3M4.5 8A8.5 8.5 0 1 1 4 14",
    eye: "M2 12s3.5-6.5 10-6.5S22 12 22 12s-3.5 6.5-10 6.5S2 12 2 12zM12 9a3 3 0 1 0 0 6 3 3 0 0 0 0-6z",
    info: "M12 3a9 9 0 1 0 0 18 9 9 0 0 0 0-18zM12 11v5.5M12 7.5h.01",
    warning: "M12 4L2.5 20h19zM12 10v4.5M12 17.5h.01",
    check: "M4 12.5l5.5 5.5L20 7",
    sun: "M12 8a4 4 0 1 0 0 8 4 4 0 0 0 0-8zM12 2v2.5M12 19.5V22M2 12h2.5M19.5 12H22M5 5l1.7 1.7M17.3 17.3L19 19M5 19l1.7-1.7M17.3 6.7L19 5",
    moon: "M20 14.5A8.5 8.5 0 0 1 9.5 4 8.5 8.5 0 1 0 20 14.5z",
    auto: "M12 3a9 9 0 1 0 0 18 9 9 0 0 0 0-18zM12 3v18",
    person: "M12 12a4 4 0 1 0 0-8 4 4 0 0 0 0 8zM4.5 20.5a7.5 7.5 0 0 1 15 0",
    download: "M12 4v11M7 10.5l5 5 5-5M4 20h16",
    upload: "M12 16V4M7 8.5l5-5 5 5M4 20h16",
    plus: "M12 5v14M5 12h14",
    trash: "M5 7h14M10 7V4h4v3M7 7l1 13h8l1-13",
    arrow: "M5 12h14M13 6l6 6-6 6",
    chevron: "M9 6l6 6-6 6",
    wizard: "M5 19L16 8M14 3v3M12.5 4.5h3M20 9v3M18.5 10.5h3M19 3.5v2M18 4.5h2",
};

/** A picture that is not read out: what it says stands beside it, or in the name of its button. */
export function icon(name) {
    return svg("svg", { class: "icon", viewBox: "0 0 24 24", "aria-hidden": "true", focusable: "false" },
        svg("path", { d: PATHS[name] ?? PATHS.group }));
}

export function hasIcon(name) {
    return Object.hasOwn(PATHS, name);
}
