/** Who listens, and telling them. on() gives back how to stop. */
export class Emitter {
    #listeners = new Map();

    on(topic, listener) {
        if (!this.#listeners.has(topic))
            this.#listeners.set(topic, new Set());
        this.#listeners.get(topic).add(listener);
        return () => this.#listeners.get(topic).delete(listener);
    }

    emit(topic, ...data) {
        for (const listener of [...(this.#listeners.get(topic) ?? [])])
            listener(...data);
    }
}
