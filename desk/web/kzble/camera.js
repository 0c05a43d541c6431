// A connected camera; connect() in ../kzble.js makes it.
import {bytesOf, CameraError, Emitter, joined} from './basics.js';
import {Catalogue, numberOf} from './catalogue.js';
import {Decoder} from './decoder.js';
import {Interests} from './interests.js';
import {entriesOf, optionBytes, requestBytes, text, valueOf} from './values.js';
import {messageBytes} from './wire.js';

const kSuccess = 0;
const kFailure = 1;  // with entries: only a part of them fitted the answer
const kTransferTries = 120;
const kTransferDelay = 500;  // ms; somebody else's transfer may take many seconds
const kDone = 'RESULT_SUCCESS';

export class Camera extends Emitter {
    #catalogue = null;  // a promise of the Catalogue
    #names = new Catalogue();
    #seen;  // decodes the link's messages
    #interests;

    constructor(link, catalogue) {
        super();
        this.link = link;
        this.protocol = link.protocol;
        this.#seen = new Decoder(this.protocol);
        this.#interests =
            new Interests(this.protocol, (...query) => this.#readRows(...query), (query, ids) => this.#ask(query, ids));
        if (catalogue !== undefined) {
            this.#useNames(catalogue instanceof Catalogue ? catalogue : new Catalogue(catalogue));
        }
        link.on('packet', (packet) => this.emit('packet', packet));
        link.on('gate', (gate) => this.emit('gate', gate));
        link.on('message', (message) => this.#take(message));
        link.on('end', (end) => {
            this.#interests.clear();
            this.emit('end', end);
        });
    }

    // ------------------------------------------------------------ commands

    // A command, or a request of the sensor interface, by its name in protocol.json, with its values by name, in their
    // order, or a single one. Gives {name, result, values, bytes}: the answer's values by name, and its bytes behind id
    // and result.
    async command(name, values, options) {
        const request = this.protocol.named(name, 'command', 'sensor');
        const answer = await this.#request(request, requestBytes(request, values), options);
        return {
            name: request.name,
            result: answer.meaning.result,
            values: answer.meaning.values ?? {},
            bytes: answer.bytes.subarray(2)
        };
    }

    // The same for what is answered only when it is refused, as a sensor's sample: waits for the writing alone.
    async send(name, values) {
        const request = this.protocol.named(name, 'command', 'sensor');
        await this.link.request(request.interface, requestBytes(request, values), {answered: false, name});
    }

    // A protobuf request by its name: `body` is the message's bytes, or its values by field number. Gives {name,
    // result, fields, bytes}; the result is null when the answer is another message than a plain result.
    async feature(name, body, options) {
        const request = this.protocol.named(name, 'protobuf');
        const answer = await this.#request(request, joined([request.head, messageBytes(body)]), options);
        const result = answer.meaning.result ?? null;
        if (result && result.name !== kDone) {
            throw refusal(request.name, result);
        }
        return {name: request.name, result, fields: answer.meaning.fields, bytes: answer.bytes.subarray(2)};
    }

    // Any message to an interface, given by name; the answer's bytes.
    async raw(interfaceName, message, options) { return this.link.request(interfaceName, bytesOf(message), options); }

    // ------------------------------------------------------------ values

    // Settings by name or id, in this order; all that have a value when none is named. Each is {id, name, value,
    // option}: the option's number and name. A value that the camera does not have is null.
    get(...names) { return this.#read('settings', 'values', names); }

    // Status fields, each {id, name, value}: a number, or a text.
    status(...names) { return this.#read('status', 'values', names); }

    // What may be chosen now of settings, each {id, name, options: [{id, name}]}.
    capabilities(...names) { return this.#read('settings', 'capabilities', names); }

    // Chooses an option of a setting; both by name or number.
    async set(setting, option) {
        if (numberOf(setting) === null || typeof option !== 'number') {
            await this.#needNames();
        }
        const id = this.#names.idOf('settings', setting);
        const value = optionBytes(this.protocol, id, this.#names.optionId(id, option));
        const request = this.protocol.requestOf('settings', Uint8Array.of(id));
        if (!request) {
            throw new CameraError('invalid', `${id} is no setting`);
        }
        await this.#request(
            {...request, name: `set ${this.#names.nameOf('settings', id)}`}, joined([[id, value.length], value]));
    }

    // Calls back with the values of settings and status fields as they are now, and again whenever one changes. What to
    // watch: a name or names, each of a setting or a status field; or {settings, statuses, capabilities}, each a list
    // of names or ids, or true for all; nothing for everything. The result, a function, stops it.
    async watch(what, callback) {
        await this.#needNames();
        const stops = [];
        const stop = async () => {
            await Promise.all(stops.splice(0).map((one) => one()));
        };
        try {
            for (const [kind, ids] of this.#watched(what)) {
                stops.push(await this.#interests.watch(kind, ids, callback));
            }
        } catch (error) {
            await stop().catch(() => {});  // the first error says more
            throw error;
        }
        return () => stop().catch((error) => {
            if (!this.link.ended) {
                throw error;
            }
        });
    }

    // Pairs of a kind and its ids; null for all.
    #watched(what) {
        if (what === undefined || what === null) {
            return [['settings', null], ['statuses', null], ['capabilities', null]];
        }
        if (typeof what === 'object' && !Array.isArray(what)) {
            return Object.entries(what)
                .map(([kind, names]) => {
                    const ids = {settings: 'settings', statuses: 'status', capabilities: 'settings'}[kind];
                    if (!ids || !(names === true || Array.isArray(names))) {
                        throw new CameraError(
                            'invalid', `what to watch is lists of settings, statuses and capabilities, not ${kind}`);
                    }
                    return [kind, names === true ? null : names.map((name) => this.#names.idOf(ids, name))];
                })
                .filter(([, ids]) => ids === null || ids.length > 0);
        }
        const watched = {settings: [], statuses: []};
        for (const name of [what].flat()) {
            const setting = numberOf(name) === null ? this.#names.find('settings', name) : null;
            const status = numberOf(name) === null ? this.#names.find('status', name) : null;
            if (setting === null && status === null) {
                throw new CameraError(
                    'invalid',
                    `no setting or status is called "${name}"; ids go into {settings: [...]} or {statuses: [...]}`);
            }
            setting !== null ? watched.settings.push(setting) : watched.statuses.push(status);
        }
        return Object.entries(watched).filter(([, ids]) => ids.length > 0);
    }

    async #read(of, form, names) {
        if (names.length === 0 || names.some((name) => numberOf(name) === null)) {
            await this.#needNames();
        }
        const ids = names.map((name) => this.#names.idOf(of, name));
        const rows = await this.#readRows(this.protocol.query(of, form, false), ids);
        return ids.length === 0 ? [...rows.values()] : ids.map((id) => rows.get(id));
    }

    // The rows of what a query answers, by id; those that the camera does not know have no value or no option.
    async #readRows(query, ids) {
        const found = await this.#complete(query, [...new Set(ids)]);
        const {ids: of, answer: form} = query.row;
        return new Map(
            (ids.length > 0 ? ids : [...found.keys()]).map((id) => [id, this.#row(of, form, id, found.get(id) ?? [])]));
    }

    #row(of, form, id, values) {
        const row = {id, name: this.#names.nameOf(of, id)};
        const numbers = values.map((bytes) => valueOf(this.protocol, of, id, bytes));
        if (form === 'capabilities') {
            const options = numbers.filter((option) => option !== null);
            return {...row, options: options.map((option) => ({id: option, name: this.#names.optionName(id, option)}))};
        }
        const value = numbers[0] ?? null;
        return of === 'settings' ? {...row, value, option: this.#names.optionName(id, value)} : {...row, value};
    }

    // The values of an answer by id. What did not fit into it is read in smaller groups.
    async #complete(query, ids) {
        const found = new Map();
        if (!this.#collect(found, query, await this.#ask(query, ids))) {
            return found;
        }
        const {ids: of, answer: form} = query.row;
        const reading = this.protocol.query(of, form, false);
        const missing = (group) => group.filter((id) => !found.has(id));
        const groups = [missing(ids.length > 0 ? ids : this.protocol.allIds(of))];
        for (let group; (group = groups.shift());) {
            const before = found.size;
            const answer = group.length > 0 ? await this.#ask(reading, group, true) : null;
            if (!answer || !this.#collect(found, reading, answer)) {
                continue;
            }
            if (found.size > before) {
                groups.unshift(missing(group));
            } else if (group.length > 1) {
                const half = group.length >> 1;
                groups.unshift(group.slice(0, half), group.slice(half));
            } else {
                throw refusal(reading.name, answer.result);
            }
        }
        return found;
    }

    // Whether entries are missing. A setting's options may then have been cut off, so that the last one counts as
    // missing.
    #collect(found, query, {result, entries}) {
        const values = new Map();
        for (const {id, bytes} of entries) {
            values.set(id, [...(values.get(id) ?? []), bytes]);
        }
        const isPartial = result.code === kFailure;
        if (isPartial && query.row.answer === 'capabilities') {
            values.delete(entries.at(-1)?.id);
        }
        values.forEach((bytes, id) => found.set(id, bytes));
        return isPartial;
    }

    // A query's {result, entries}. Without entries, a result that is no success is a refusal.
    async #ask(query, ids, mayBeEmpty = false) {
        const message = joined([query.head, ids]);
        const bytes = await this.link.request(query.interface, message, {name: query.name});
        const result = this.#resultOf(query, bytes);
        const entries = query.row.answer === 'header' ? [] : entriesOf(bytes.subarray(2));
        if (result.code !== kSuccess && entries.length === 0 && !(mayBeEmpty && result.code === kFailure)) {
            throw refusal(query.name, result);
        }
        return {result, entries};
    }

    // ------------------------------------------------------------ names

    // The camera's Catalogue, fetched over the link once.
    catalogue() {
        this.#catalogue ??= this.#fetchCatalogue().then((catalogue) => this.#useNames(catalogue), (error) => {
            this.#catalogue = null;
            throw error;
        });
        return this.#catalogue;
    }

    async #needNames() { await (this.#catalogue ?? this.catalogue()); }

    #useNames(catalogue) {
        this.#names = catalogue;
        this.#seen.catalogue = catalogue;
        this.#catalogue = Promise.resolve(catalogue);
        return catalogue;
    }

    // One transfer at a time in the whole camera: while it sends somebody else's it refuses.
    async #fetchCatalogue() {
        const request =
            this.protocol.named(this.protocol.description.commands.find((row) => row.answer === 'transfer').name);
        for (let tries = 1;; ++tries) {
            try {
                const {bytes} = await this.#request(request, Uint8Array.from(request.head));
                return await Catalogue.read(bytes.subarray(2));
            } catch (error) {
                if (error.result?.code !== kFailure || tries === kTransferTries) {
                    throw error;
                }
                await new Promise((resolve) => {
                    setTimeout(resolve, kTransferDelay);
                });
            }
        }
    }

    // What a message of a stream means, with names; for a log of another device's messages make a Decoder of its own.
    decode(stream, bytes, direction) {
        return new Decoder(this.protocol, this.#names).decode(stream, bytes, direction);
    }

    // ------------------------------------------------------------ the link

    close() { return this.link.close(); }

    #take(message) {
        const meaning = this.#seen.decode(message.stream, message.bytes, message.direction);
        this.emit('message', {...message, ...meaning});
        if (meaning.what === 'push') {
            this.#interests.take(meaning);
            this.emit('push', {...message, ...meaning});
        }
    }

    async #request(request, message, options = {}) {
        const bytes = await this.link.request(request.interface, message, {...options, name: request.name});
        const decoder = new Decoder(this.protocol, this.#names);
        const {request: stream, answer} = this.protocol.interface(request.interface);
        decoder.decode(stream, message, 'write');
        const meaning = decoder.decode(answer, bytes, 'notify');
        if (meaning.problem) {
            throw new CameraError('malformed', `${request.name}: ${meaning.problem}`, {command: request.name});
        }
        const isFeature = request.kind === 'protobuf' && bytes[1] >= 0x80;
        if (!isFeature && meaning.result.code !== kSuccess) {
            throw refusal(request.name, meaning.result);
        }
        return {bytes, meaning};
    }

    #resultOf(request, bytes) {
        if (bytes.length < 2) {
            throw new CameraError('malformed', `${request.name}: the answer is too short`, {command: request.name});
        }
        return this.protocol.result(request.interface, bytes[1]);
    }
}

function refusal(command, result) {
    return new CameraError('refused', `${command} was refused: ${result.name} (${result.code})`, {command, result});
}
