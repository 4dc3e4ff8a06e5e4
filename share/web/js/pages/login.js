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

/** What is shown for a built-in password: another one, twice. */
function newPassword() {
    const field = (id) => h("input", {
        type: "password", id, autocomplete: "new-password", minlength: "8", disabled: true, "aria-describedby": "login-new-why",
    });
    const [first, second] = [field("login-new"), field("login-again")];
    const part = h("div", { class: "login-new", hidden: true },
        h("p", { class: "help", id: "login-new-why" }, "This is the password that every new appliance has. Choose another one, of 8 characters or more."),
        h("label", { for: first.id }, "New password"), first, h("label", { for: second.id }, "Once more"), second);
    return {
        part,
        show: (type) => (first.type = second.type = type),
        ask: () => {
            part.hidden = first.disabled = second.disabled = false;
            first.required = second.required = true;
            first.focus();
        },
        drop: () => (part.hidden = first.disabled = second.disabled = true),
        differs: () => !part.hidden && first.value !== second.value,
        value: () => (part.hidden ? undefined : first.value),
    };
}

/** The log-in. loggedIn(session) is called once it worked. why: what to say first, such as that a session ended. */
export function loginPage(why, user, loggedIn) {
    const name = h("input", { type: "text", id: "login-user", autocomplete: "username", autocapitalize: "off", spellcheck: "false", required: true });
    const word = h("input", { type: "password", id: "login-password", autocomplete: "current-password", required: true });
    const error = h("p", { class: "form-error", role: "alert" });
    const send = h("button", { type: "submit", class: "button primary wide-button" }, "Log in");
    const eye = iconButton("Show the password", icon("eye"), () => {
        word.type = word.type === "password" ? "text" : "password";
        next.show(word.type);
        eye.setAttribute("aria-pressed", String(word.type === "text"));
    }, { "aria-pressed": "false" });
    const say = (text) => (error.textContent = text);
    name.value = user ?? "";
    const next = newPassword();
    for (const input of [name, word])
        input.addEventListener("input", next.drop);
    const form = h("form", { class: "login-card", submit: async (event) => {
        event.preventDefault();
        if (next.differs())
            return say("The two new passwords differ.");
        send.disabled = true;
        say("");
        try {
            loggedIn(await api.login(name.value, word.value, next.value()));
        } catch (problem) {
            send.disabled = false;
            if (problem instanceof Problem && problem.status === 403 && problem.message.startsWith("Change the password") && !next.value())
                return next.ask();
            const delayed = problem instanceof Problem && problem.status === 429;
            say(problem instanceof Problem && problem.status === 401 ? problem.message || "User or password is wrong." : problem.message);
            if (!next.value())
                word.select();
            if (delayed && problem.retryAfter > 0)
                waitFor(problem.retryAfter, send, say);
        }
    } },
    h("img", { src: "icon.svg", alt: "", width: "48", height: "48" }), h("h1", {}, "Log in"), h("p", { class: "help" }, why || `Configuration of ${location.hostname}`),
    h("label", { for: name.id }, "User"), name, h("label", { for: word.id }, "Password"), h("span", { class: "password-line" }, word, eye), next.part, error, send);
    queueMicrotask(() => (name.value ? word : name).focus());
    return h("main", { class: "login" }, form);
}
