// Asks the daemon about what is edited, while it is edited: what it would refuse stands at the field at once.

import { api, Problem } from "./api.js";
import { draftValues, setErrors, state } from "./state.js";

const AFTER = 350; // ms without a key

let timer = 0;
let round = 0;

export function errorsOf(answer) {
    return new Map((answer?.errors ?? []).map(({ name, detail }) => [name, detail]));
}

async function check() {
    const mine = ++round;
    const values = draftValues();
    if (Object.keys(values).length === 0)
        return setErrors(new Map());
    let errors = new Map();
    try {
        errors = errorsOf(await api.plan({ values }));
    } catch (error) {
        if (!(error instanceof Problem))
            return; // the bar says that nobody answers
        errors = error.errors;
    }
    if (mine === round)
        setErrors(new Map([...errors].filter(([name]) => state.drafts.has(name))));
}

state.on("pending", () => {
    clearTimeout(timer);
    round += 1;
    timer = setTimeout(check, AFTER);
});
