import { api, Problem } from "../api.js";
import { h, iconButton } from "../dom.js";
import { icon } from "../icons.js";

function waitFor(seconds, send, say) {
    send.disabled = true;
    const until = Date.now() + 1000 * seconds;
    const timer = setInterval(() => {
        const left = Math.ceil((until - Date.now()) / 1000);
        send.disabled = left > 0 && send.isConnected;
        say(left > 0 ? `Too many wrong passwords. Try again in ${left} s.` : "");
        if (!send.disabled)
            clearInterval(timer);
    }, 250);
}

/** The log-in. loggedIn(session) is called once it worked. why: what to say first, such as that a session ended. */
export function loginPage(why, user, loggedIn) {
    const name = h("input", { type: "text", id: "login-user", autocomplete: "username", autocapitalize: "off", spellcheck: "false", required: true });
    const word = h("input", { type: "password", id: "login-password", autocomplete: "current-password", required: true });
    const error = h("p", { class: "form-error", role: "alert" });
    const send = h("button", { type: "submit", class: "button primary wide-button" }, "Log in");
    const eye = iconButton("Show the password", icon("eye"), () => {
        word.type = word.type === "password" ? "text" : "password";
        eye.setAttribute("aria-pressed", String(word.type === "text"));
    }, { "aria-pressed": "false" });
    const say = (text) => (error.textContent = text);
    name.value = user ?? "";
    const form = h("form", { class: "login-card", submit: async (event) => {
        event.preventDefault();
        send.disabled = true;
        say("");
        try {
            loggedIn(await api.login(name.value, word.value));
        } catch (problem) {
            send.disabled = false;
            const delayed = problem instanceof Problem && problem.status === 429;
            say(problem instanceof Problem && problem.status === 401 ? problem.message || "User or password is wrong." : problem.message);
            word.select();
            if (delayed && problem.retryAfter > 0)
                waitFor(problem.retryAfter, send, say);
        }
    } },
    h("img", { src: "icon.svg", alt: "", width: "48", height: "48" }), h("h1", {}, "Log in"), h("p", { class: "help" }, why || `Configuration of ${location.hostname}`),
    h("label", { for: name.id }, "User"), name, h("label", { for: word.id }, "Password"), h("span", { class: "password-line" }, word, eye), error, send);
    queueMicrotask(() => (name.value ? word : name).focus());
    return h("main", { class: "login" }, form);
}
