// What passed between the devices of the desk and the camera, in order, each message with its meaning. Old entries go
// when there are too many.
import {Catalogue, Decoder, Protocol} from '../kzble.js';
import {fullText, isRefused, shortText} from './describe.js';
import {bytesOf} from './names.js';

const kKept = 6000;

export class Traffic {
    entries = [];
    #decoders = new Map();  // by device
    #isSorted = true;
    #onChange = () => {};

    constructor(desk, protocol, catalogue) {
        this.protocol = Protocol.of(protocol);
        this.catalogue = new Catalogue(catalogue);
        desk.on('reset', () => this.clear());
        desk.on('entry', (entry) => this.#add(entry));
    }

    onChange(listener) {
        this.#onChange = listener;
    }

    clear() {
        this.entries = [];
        this.#decoders.clear();
        this.#isSorted = true;
        this.#onChange();
    }

    // The last `most` entries that `fits` accepts, oldest first. What was before this page comes device by device.
    last(most, fits) {
        this.#sort();
        const found = [];
        for (let at = this.entries.length - 1; at >= 0 && found.length < most; --at) {
            if (fits(this.entries[at])) {
                found.push(this.entries[at]);
            }
        }
        return found.reverse();
    }

    #sort() {
        if (!this.#isSorted) {
            this.entries.sort((one, other) => (one.time < other.time ? -1 : one.time > other.time ? 1 : 0));
            this.#isSorted = true;
        }
    }

    #add(entry) {
        const row = {...entry, key: `${entry.device}:${entry.event}:${entry.id}`, ...this.#words(entry)};
        row.searched = [row.event, row.title, row.text, row.interface, row.bytes, row.bytes?.replaceAll(' ', '')]
            .filter(Boolean).join('\n').toLowerCase();
        this.#isSorted &&= entry.time >= (this.entries.at(-1)?.time ?? '');
        this.entries.push(row);
        if (this.entries.length > 2 * kKept) {
            this.#sort();
            this.entries.splice(0, this.entries.length - kKept);
        }
        this.#onChange();
    }

    #words(entry) {
        switch (entry.event) {
        case 'packet': return {title: `stream ${entry.stream}`, interface: this.#interface(entry.stream), text: ''};
        case 'message': return this.#message(entry);
        case 'gate': return {title: entry.value === 1 ? 'gate opened' : 'gate closed', interface: this.#gate(entry.descriptor),
            direction: 'write', text: `descriptor ${entry.descriptor} = ${entry.value}`};
        case 'lost': return {title: 'lost', text: `${entry.events} events came too fast to be kept`, isBad: true};
        default: return {title: 'end', text: entry.reason};
        }
    }

    #message(entry) {
        if (!this.#decoders.has(entry.device)) {
            this.#decoders.set(entry.device, new Decoder(this.protocol, this.catalogue));
        }
        const bytes = Uint8Array.from(bytesOf(entry.bytes));
        const meaning = this.#decoders.get(entry.device).decode(entry.stream, bytes, entry.direction);
        return {title: meaning.name ?? entry.meaning?.name ?? 'unknown', what: meaning.what, text: shortText(meaning),
            full: fullText(meaning), isBad: isRefused(meaning)};
    }

    #interface(stream) {
        return this.protocol.interfaceOf(stream)?.name ?? '';
    }

    #gate(descriptor) {
        return this.protocol.interfaces.find(({gate}) => gate === descriptor)?.name ?? '';
    }
}
