// protocol.json, looked up by names and by the first bytes of messages.
import {CameraError, folded} from './basics.js';

const kAnswerBit = 0x80;  // of the action, in the answer of a protobuf request

export class Protocol {
    #requests = new Map();  // by interface and first bytes
    #named = new Map();
    #pushes = new Map();

    static of(description) { return description instanceof Protocol ? description : new Protocol(description); }

    constructor(description) {
        this.description = description;
        this.interfaces = description.interfaces;
        this.features = new Map(description.features.map((feature) => [feature.id, feature.on]));
        for (const row of description.commands) {
            this.#addRequest('command', 'command', [row.id], row);
        }
        for (const row of description.protobuf) {
            this.#addRequest('protobuf', this.features.get(row.feature), [row.feature, row.id], row);
        }
        for (const row of description.settings) {
            this.#addRequest('setting', 'settings', 'id' in row ? [row.id] : [], row);
        }
        for (const row of description.queries) {
            this.#addRequest('query', 'query', [parseInt(row.byte, 16)], row);
        }
        for (const row of description.sensor) {
            this.#addRequest('sensor', 'sensor', [row.id], row);
        }
        for (const row of description.pushes) {
            this.#addPush('push', 'query', row);
        }
        for (const row of description.buffers) {
            this.#addPush('buffer', 'sensor', row);
        }
    }

    #addRequest(kind, interfaceName, head, row) {
        const request = {kind, interface: interfaceName, head, row, name: row.name, does: row.does};
        this.#requests.set(key(interfaceName, head), request);
        const name = folded(row.name);
        if (!this.#named.has(name)) {  // some names have two actions, and the first one does
            this.#named.set(name, request);
        }
    }

    #addPush(kind, interfaceName, row) {
        const head = [row.byte, row.action].filter((byte) => byte !== undefined).map((byte) => parseInt(byte, 16));
        this.#pushes.set(
            key(interfaceName, head), {kind, interface: interfaceName, row, name: row.name, does: row.does});
    }

    interface(name) {
        return this.interfaces.find((one) => one.name === name);
    }

    interfaceOf(stream) {
        return this.interfaces.find((one) => one.request === stream || one.answer === stream) ?? null;
    }

    // A request by its name, of one of these kinds when some are given.
    named(name, ...kinds) {
        const found = this.#named.get(folded(name));
        if (!found || (kinds.length > 0 && !kinds.includes(found.kind))) {
            throw new CameraError(
                'invalid', `there is no ${kinds.join(' or ') || 'request'} called "${name}"`, {command: name});
        }
        return found;
    }

    // Whether a message of an interface belongs to a protobuf feature: then its second byte is an action.
    isFeature(interfaceName, bytes) { return bytes.length > 0 && this.features.get(bytes[0]) === interfaceName; }

    requestOf(interfaceName, bytes) {
        const size = this.isFeature(interfaceName, bytes) ? 2 : 1;
        const exact = bytes.length < size ? undefined : this.#requests.get(key(interfaceName, bytes.subarray(0, size)));
        // Settings have one row for all ids.
        return exact ?? (size === 1 && bytes.length > 0 ? this.#requests.get(key(interfaceName, [])) : undefined) ??
            null;
    }

    pushOf(interfaceName, bytes) {
        return this.#pushes.get(key(interfaceName, bytes.subarray(0, 1))) ??
            this.#pushes.get(key(interfaceName, bytes.subarray(0, 2))) ?? null;
    }

    // Whether a notification on the answer stream of an interface answers this request. A refusal has two bytes and
    // does not repeat the action; one of a request that the camera could not read begins with 0.
    isAnswer(interfaceName, request, bytes) {
        const isRefusal = bytes.length === 2 && bytes[1] < kAnswerBit;
        if (bytes.length === 0 || request.length === 0 || bytes[0] !== request[0]) {
            return isRefusal && bytes[0] === 0;
        }
        return !this.isFeature(interfaceName, request) || isRefusal || bytes[1] === (request[1] | kAnswerBit);
    }

    // {code, name} of a result byte; results that have no row are the camera's own.
    result(interfaceName, code) {
        const rows = interfaceName === 'sensor' ? this.description.sensorResults : this.description.results;
        return {code, name: rows.find((row) => row.code === code)?.name ?? 'refused by the camera'};
    }

    protobufResult(code) {
        return {
            code,
            name: this.description.protobufResults.find((row) => row.code === code)?.name ?? `result ${code}`
        };
    }

    // The width of a value of 'settings' or 'status': '1', '4', '8', '0' or 'text'.
    width(ids, id) {
        const {width, except} = this.description.widths[ids];
        return Object.keys(except).find((other) => except[other].includes(id)) ?? String(width);
    }

    // All ids that values of 'settings' or 'status' can have.
    allIds(ids) {
        const {first, last} = this.description.widths[ids];
        return Array.from({length: last - first + 1}, (_, index) => first + index);
    }

    // The query that reads, registers for or unregisters from ids in an answer form.
    query(ids, form, registers) {
        const fits = (row) => row.ids === ids && row.answer === form && ('push' in row) === registers;
        return this.named(this.description.queries.find(fits).name);
    }

    unregisterQuery(registering) { return this.named('un' + registering.name); }
}

function key(interfaceName, head) { return interfaceName + ' ' + Array.from(head).join(' '); }
