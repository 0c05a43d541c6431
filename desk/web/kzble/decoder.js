// Says what whole messages mean, for logs and for the camera's own use. Never throws for what the bytes are: what
// cannot be read has a `problem`.
import {bytesOf, CameraError} from './basics.js';
import {Catalogue} from './catalogue.js';
import {answerValues, entriesOf, requestValues, text, valueOf} from './values.js';
import {fieldsOf} from './wire.js';

const kMostOpen = 64;  // requests that are never answered must not pile up

export class Decoder {
    #open = [];  // requests without an answer yet: {interface, request, bytes}

    constructor(protocol, catalogue = new Catalogue()) {
        this.protocol = protocol;
        this.catalogue = catalogue;
    }

    // A message of a stream; `direction` is 'write' or 'notify'. Some answers begin as a push does, so the requests
    // have to pass here too. What comes back, as far as it applies:
    //   {what: 'request' | 'answer' | 'push' | 'unknown', interface, kind, name, does, result: {code, name},
    //    values: {name: value}, settings | statuses: [{id, name, value, option}], capabilities: [{id, name, options}],
    //    ids: [{id, name}], fields: [{field, value}] of a protobuf message, problem}
    decode(stream, given, direction) {
        const channel = this.protocol.interfaceOf(stream);
        if (!channel) {
            return {what: 'unknown', interface: null, kind: null, name: null};
        }
        const meaning = {what: 'unknown', interface: channel.name, kind: null, name: null};
        try {
            const bytes = bytesOf(given);
            direction === 'write' ? this.#request(meaning, bytes) : this.#notification(meaning, bytes);
        } catch (error) {
            if (!(error instanceof CameraError)) {
                throw error;
            }
            meaning.problem = error.message;
        }
        return meaning;
    }

    #request(meaning, bytes) {
        const request = this.protocol.requestOf(meaning.interface, bytes);
        this.#open.push({interface: meaning.interface, request, bytes: bytes.slice(0, 2)});
        this.#open.splice(0, this.#open.length - kMostOpen);
        describe(meaning, 'request', request);
        if (request?.kind === 'protobuf') {
            meaning.fields = fieldsOf(bytes.subarray(2));
        } else if (request?.kind === 'query') {
            meaning.ids =
                Array.from(bytes.subarray(1), (id) => ({id, name: this.catalogue.nameOf(request.row.ids, id)}));
        } else if (request) {
            meaning.values = requestValues(request, bytes);
            if (request.kind === 'setting') {
                meaning.settings = [this.#setting(bytes[0], meaning.values.option)];
            }
        }
    }

    #notification(meaning, bytes) {
        const open = this.#takeOpen(meaning.interface, bytes);
        const push = this.protocol.pushOf(meaning.interface, bytes);
        if (!open && push) {
            describe(meaning, 'push', push);
            this.#push(meaning, push, bytes);
        } else if (open || bytes.length > 1) {
            describe(meaning, 'answer', open ? open.request : this.#answered(meaning.interface, bytes));
            this.#answer(meaning, open?.request ?? this.#answered(meaning.interface, bytes), bytes);
        }
    }

    #takeOpen(interfaceName, bytes) {
        const index = this.#open.findIndex(
            (one) => one.interface === interfaceName && this.protocol.isAnswer(interfaceName, one.bytes, bytes));
        return index < 0 ? null : this.#open.splice(index, 1)[0];
    }

    // The request that an answer repeats.
    #answered(interfaceName, bytes) {
        return this.protocol.requestOf(
            interfaceName,
            bytes.map(
                (byte, index) => (index === 1 && this.protocol.isFeature(interfaceName, bytes) ? byte & 0x7f : byte)));
    }

    #answer(meaning, request, bytes) {
        const isProtobuf = this.protocol.isFeature(meaning.interface, bytes) && bytes[1] >= 0x80;
        if (isProtobuf) {
            meaning.fields = fieldsOf(bytes.subarray(2));
            const result = meaning.fields.find((one) => one.field === 1)?.value;
            if (request?.row.answer === 'ResponseGeneric' && result !== undefined) {
                meaning.result = this.protocol.protobufResult(result);
            }
            return;
        }
        if (bytes.length < 2) {
            throw new CameraError('malformed', 'an answer has at least two bytes');
        }
        meaning.result = this.protocol.result(meaning.interface, bytes[1]);
        const rest = bytes.subarray(2);
        if (request?.kind === 'query') {
            this.#entries(meaning, request.row.ids, request.row.answer, rest);
        } else if (request?.row.answer === 'transfer') {
            meaning.values = {};
        } else if (request?.kind === 'command' && meaning.result.code === 0) {
            meaning.values = answerValues(request, rest);
        } else if (request?.kind === 'setting') {
            meaning.settings = [{id: bytes[0], name: this.catalogue.nameOf('settings', bytes[0])}];
        }
    }

    #push(meaning, push, bytes) {
        if (push.kind === 'buffer') {
            meaning.values = {data: bytes.subarray(1)};
        } else if ('action' in push.row) {
            meaning.fields = fieldsOf(bytes.subarray(2));
        } else if (bytes.length > 1) {
            meaning.result = this.protocol.result(meaning.interface, bytes[1]);
            const registering = this.protocol.description.queries.find((row) => row.push === push.row.byte);
            this.#entries(meaning, registering.ids, push.row.form, bytes.subarray(2));
        }
    }

    #entries(meaning, ids, form, bytes) {
        if (form === 'values') {
            meaning[ids === 'settings' ? 'settings' : 'statuses'] =
                entriesOf(bytes).map((entry) => this.#value(ids, entry));
        } else if (form === 'capabilities') {
            meaning.capabilities = this.#capabilities(entriesOf(bytes));
        } else if (form === 'names') {
            meaning.settings = entriesOf(bytes).map(({id, bytes: name}) => ({id, name: text(name)}));
        }
    }

    #value(ids, {id, bytes}) {
        const value = valueOf(this.protocol, ids, id, bytes);
        return ids === 'settings' ? this.#setting(id, value) : {id, name: this.catalogue.nameOf(ids, id), value};
    }

    #setting(id, value) {
        return {id, name: this.catalogue.nameOf('settings', id), value, option: this.catalogue.optionName(id, value)};
    }

    #capabilities(entries) {
        const rows = new Map();
        for (const {id, bytes} of entries) {
            const row = rows.get(id) ?? {id, name: this.catalogue.nameOf('settings', id), options: []};
            rows.set(id, row);
            if (bytes.length > 0) {
                const option = valueOf(this.protocol, 'settings', id, bytes);
                row.options.push({id: option, name: this.catalogue.optionName(id, option)});
            }
        }
        return [...rows.values()];
    }
}

function describe(meaning, what, row) {
    meaning.what = what;
    meaning.kind = row?.kind ?? null;
    meaning.name = row?.name ?? null;
    if (row?.does) {
        meaning.does = row.does;
    }
}
