// The camera's catalogue: names of settings, their options and status fields, from its settings.json.
import {CameraError, folded} from './basics.js';

const kLargest = 16 << 20;  // bytes that a decompressed catalogue may take

// The text of a gzip file.
async function gunzip(compressed) {
    const reader = new Blob([compressed]).stream().pipeThrough(new DecompressionStream('gzip')).getReader();
    const decoder = new TextDecoder();
    let text = '';
    for (let size = 0;;) {
        const {done, value} = await reader.read();
        if (done) {
            return text + decoder.decode();
        }
        size += value.length;
        if (size > kLargest) {
            await reader.cancel();
            throw new Error(`it has more than ${kLargest} bytes`);
        }
        text += decoder.decode(value, {stream: true});
    }
}

export class Catalogue {
    #settings = new Map();  // by id: {id, name, options: by id}
    #statuses = new Map();

    // From the compressed file as the camera sends it.
    static async read(compressed) {
        try {
            return new Catalogue(JSON.parse(await gunzip(compressed)));
        } catch (error) {
            throw new CameraError(
                'malformed', `the camera's catalogue cannot be read: ${error.message}`, {cause: error});
        }
    }

    // From a parsed settings.json; without one nothing has a name.
    constructor(json = null) {
        this.json = json;
        if (json === null) {
            return;
        }
        try {
            for (const {id, display_name: name, options} of json.settings) {
                this.#settings.set(id, {id, name, options: new Map(options.map((one) => [one.id, one.display_name]))});
            }
            for (const {id, name} of json.status.groups.flatMap((group) => group.fields)) {
                this.#statuses.set(id, {id, name});
            }
        } catch (error) {
            throw new CameraError('malformed', `not a catalogue of settings: ${error.message}`, {cause: error});
        }
    }

    get version() { return this.json?.version ?? null; }

    // {id, name, options: Map of names by id}
    get settings() { return [...this.#settings.values()]; }

    get statuses() { return [...this.#statuses.values()]; }

    // The name of an id of 'settings' or 'status', or words with its number.
    nameOf(ids, id) {
        const found = (ids === 'settings' ? this.#settings : this.#statuses).get(id);
        return found?.name ?? `${ids === 'settings' ? 'setting' : 'status'} ${id}`;
    }

    // The name of an option; null when it has none.
    optionName(settingId, option) { return this.#settings.get(settingId)?.options.get(option) ?? null; }

    // An id of 'settings' or 'status', given as a number or by name; null when there is none.
    find(ids, given) {
        const number = numberOf(given);
        if (number !== null) {
            return number <= 0xff ? number : null;
        }
        const rows = ids === 'settings' ? this.settings : this.statuses;
        return rows.find((row) => folded(row.name) === folded(given))?.id ?? null;
    }

    idOf(ids, given) {
        const id = this.find(ids, given);
        if (id === null) {
            throw new CameraError('invalid', `no ${ids === 'settings' ? 'setting' : 'status'} is called "${given}"`);
        }
        return id;
    }

    // An option of a setting, given as a number or by name. Digits in a text are a number unless an option has that
    // name: "240" may be a frame rate.
    optionId(settingId, given) {
        const options = [...(this.#settings.get(settingId)?.options ?? [])];
        const named = typeof given === 'string' && options.find(([, name]) => folded(name) === folded(given));
        const option = named ? named[0] : numberOf(given);
        if (option === null || option > 0xffffffff) {
            throw new CameraError('invalid', `${this.nameOf('settings', settingId)} has no option called "${given}"`);
        }
        return option;
    }
}

// A whole number, also one written in digits; null for a name.
export function numberOf(given) {
    if (typeof given === 'number') {
        return Number.isSafeInteger(given) && given >= 0 ? given : null;
    }
    return /^[0-9]+$/.test(given) ? Number(given) : null;
}
