// Who watches which values, and the registrations at the camera that this takes.
import {callSafely} from './basics.js';

const kKinds = {
    settings: {ids: 'settings', form: 'values'},
    statuses: {ids: 'status', form: 'values'},
    capabilities: {ids: 'settings', form: 'capabilities'},
};

export class Interests {
    #watchers = new Set();  // {kind, ids: Set, or null for all; callback, last: Map of values by id}
    #ask;

    // `ask(registering, ids)` reads, completely, what a query answers: a map of rows by id.
    constructor(protocol, ask, unregister) {
        this.protocol = protocol;
        this.#ask = ask;
        this.unregister = unregister;
    }

    // The callback gets {kind, id, name, value, option} or, of capabilities, {kind, id, name, options}: each value as
    // it is now, and then whenever it is another one. The result stops it.
    async watch(kind, ids, callback) {
        const watcher = {kind, ids: ids && new Set(ids), callback, last: new Map()};
        const {ids: of, form} = kKinds[kind];
        this.#watchers.add(watcher);
        try {
            const rows = await this.#ask(this.protocol.query(of, form, true), ids ?? []);
            // What a push brought in the meantime is newer than the answer, or will be followed by another push.
            [...rows.values()].filter((row) => !watcher.last.has(row.id)).forEach((row) => this.#pass(watcher, row));
        } catch (error) {
            this.#watchers.delete(watcher);
            throw error;
        }
        return () => this.#stop(watcher);
    }

    // Passes the values of a push on.
    take(meaning) {
        for (const watcher of [...this.#watchers]) {
            for (const row of meaning[watcher.kind] ?? []) {
                this.#pass(watcher, row);
            }
        }
    }

    #pass(watcher, row) {
        const isWatched = this.#watchers.has(watcher) && (!watcher.ids || watcher.ids.has(row.id));
        const value = 'options' in row ? row.options.map(({id}) => id).join() : row.value;
        if (isWatched && !(watcher.last.has(row.id) && watcher.last.get(row.id) === value)) {
            watcher.last.set(row.id, value);
            callSafely(watcher.callback, {kind: watcher.kind, ...row});
        }
    }

    // Unregisters from what nobody else watches.
    async #stop(watcher) {
        if (!this.#watchers.delete(watcher)) {
            return;
        }
        const {ids: of, form} = kKinds[watcher.kind];
        const others = [...this.#watchers].filter((other) => other.kind === watcher.kind);
        const isNeeded = (id) => others.some((other) => !other.ids || other.ids.has(id));
        const ids = [...(watcher.ids ?? this.protocol.allIds(of))].filter((id) => !isNeeded(id));
        if (ids.length > 0) {
            await this.unregister(this.protocol.unregisterQuery(this.protocol.query(of, form, true)), ids);
        }
    }

    clear() { this.#watchers.clear(); }
}
