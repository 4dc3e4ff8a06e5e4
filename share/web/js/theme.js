// Dark, light, or as the device is. The choice stays in this browser.

const KEY = "theme";
const CHOICES = ["auto", "light", "dark"];

function stored() {
    try {
        return localStorage.getItem(KEY);
    } catch {
        return null;
    }
}

export function theme() {
    const choice = stored();
    return CHOICES.includes(choice) ? choice : "auto";
}

export function setTheme(choice) {
    try {
        localStorage.setItem(KEY, choice);
    } catch {
        // a browser that keeps nothing still shows it
    }
    document.documentElement.dataset.theme = choice;
}

export function nextTheme() {
    const next = CHOICES[(CHOICES.indexOf(theme()) + 1) % CHOICES.length];
    setTheme(next);
    return next;
}

document.documentElement.dataset.theme = theme();
