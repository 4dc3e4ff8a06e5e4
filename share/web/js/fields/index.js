// Which field shows which kind of API. Each kind gives { element, input, set(text), lock(locked) }, and calls changed(text).

import { action, isAction } from "./action.js";
import { choices } from "./choices.js";
import { number } from "./number.js";
import { password } from "./password.js";
import { select } from "./select.js";
import { toggle } from "./toggle.js";
import { textField } from "./text.js";
import { value } from "./value.js";

const KINDS = { boolean: toggle, integer: number, number, choice: select, password };

// Of several values; where some are named, these are chosen from.
const LISTS = new Set(["addresses", "hosts", "choices"]);

/** The field of an API. ids: { id, label, describedby }. changed(text) is called for each edit. */
export function makeField(api, ids, changed) {
    if (api.isStatus)
        return value(api, ids);
    if (api.secret)
        return password(api, ids, changed);
    if (!api.choices?.length && api.kind === "choice")
        return textField(api, ids, changed);
    if (LISTS.has(api.kind) && api.choices?.length)
        return choices(api, ids, changed);
    if (isAction(api))
        return action(api, ids);
    return (KINDS[api.kind] ?? textField)(api, ids, changed);
}
