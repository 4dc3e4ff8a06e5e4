// Shortcuts that count everywhere. Not while somebody types in a field.

function isTyping(target) {
    return target.closest?.("input:not([type=checkbox]), textarea, select, [contenteditable]") !== null;
}

/** shortcuts: { key: action }; "Ctrl+Enter" counts in fields, too. */
export function startKeyboard(shortcuts) {
    document.addEventListener("keydown", (event) => {
        const key = `${event.ctrlKey || event.metaKey ? "Ctrl+" : ""}${event.key}`;
        const action = shortcuts[key];
        if (!action || event.altKey || document.querySelector("dialog[open]") || (isTyping(event.target) && !key.startsWith("Ctrl+") && key !== "Escape"))
            return;
        if (action(event) !== false)
            event.preventDefault();
    });
}
