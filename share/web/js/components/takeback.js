import { api } from "../api.js";
import { refreshMarks } from "../sync.js";
import { attempt } from "./toast.js";

/** Reads what was set and not saved back from the files. */
export function takeBack(names) {
    return attempt(async () => {
        await api.revert(names);
        await refreshMarks();
    }, "Taken back.");
}
