// Messages as packets of 20 bytes, and back. The forms of a packet's header are those of protocol.json: in `bits` a 0
// or 1 stands for itself, L for a bit of the message's length, C for one of the counter.
import {CameraError} from './basics.js';

const kPacketSize = 20;
const kMostPackets = 400;  // that the camera takes for one message

class Form {
    constructor(row) {
        const bits = row.bits.replaceAll(' ', '');
        this.row = row;
        this.size = bits.length / 8;
        this.fields = {L: bits.replace(/[^L]/g, '').length, C: bits.replace(/[^C]/g, '').length};
        this.mask = this.#firstByte(bits, (bit) => bit === '0' || bit === '1');
        this.value = this.#firstByte(bits, (bit) => bit === '1');
    }

    #firstByte(bits, isSet) {
        return parseInt(Array.from(bits.slice(0, 8), (bit) => (isSet(bit) ? '1' : '0')).join(''), 2);
    }

    fits(packet) { return packet.length >= this.size && (packet[0] & this.mask) === this.value; }

    // Length or counter are the last bits of the header.
    header(number) {
        const bytes =
            Array.from({length: this.size}, (_, index) => Math.floor(number / 256 ** (this.size - 1 - index)) & 0xff);
        bytes[0] |= this.value;
        return bytes;
    }

    number(packet) {
        let number = packet[0] & ~this.mask & 0xff;
        for (let index = 1; index < this.size; ++index) {
            number = number * 256 + packet[index];
        }
        return number;
    }
}

export class Framing {
    constructor(protocol) {
        this.forms = protocol.description.packets.map((row) => new Form(row));
        this.starts = this.forms.filter((form) => form.fields.L > 0);
        this.continuation = this.forms.find((form) => form.fields.C > 0);
    }

    // The packets of a message, as `from` ('client' or 'camera') sends it.
    cut(message, from = 'client') {
        const start =
            this.starts.find(({row}) => (row.from === 'both' || row.from === from) && message.length <= row.used);
        const rest = Math.max(0, message.length - (start?.row.room ?? 0));
        if (!start || (from === 'client' && 1 + Math.ceil(rest / this.continuation.row.room) > kMostPackets)) {
            throw new CameraError('invalid', `a message of ${message.length} bytes is too long`);
        }
        const packets = [Uint8Array.from([...start.header(message.length), ...message.subarray(0, start.row.room)])];
        const counters = 2 ** this.continuation.fields.C;
        for (let at = start.row.room; at < message.length; at += this.continuation.row.room) {
            const header = this.continuation.header((packets.length - 1) % counters);
            packets.push(Uint8Array.from([...header, ...message.subarray(at, at + kPacketSize - header.length)]));
        }
        return packets;
    }

    assembler(from) { return new Assembler(this, from); }
}

// Rebuilds the messages of one stream. A packet that continues nothing, or out of order, is dropped with what it would
// have continued; at most one message is kept, which is no longer than its first packet announced.
class Assembler {
    #framing;
    #from;
    #message = null;
    #size = 0;
    #counter = 0;

    constructor(framing, from) {
        this.#framing = framing;
        this.#from = from;
    }

    // The message that this packet completes, or null.
    add(packet) {
        const {continuation, starts} = this.#framing;
        const isContinuation = continuation.fits(packet);
        const form = isContinuation ?
            continuation :
            starts.find((one) => one.fits(packet) && (one.row.from === 'both' || one.row.from === this.#from));
        const continues = isContinuation && this.#message !== null && continuation.number(packet) === this.#counter;
        if (!form || packet.length > kPacketSize || (isContinuation && !continues)) {
            this.reset();
            return null;
        }
        if (continues) {
            this.#counter = (this.#counter + 1) % 2 ** continuation.fields.C;
        } else {
            this.reset();
            this.#message = new Uint8Array(form.number(packet));
        }
        return this.#take(packet.subarray(form.size));
    }

    #take(bytes) {
        const message = this.#message;
        const taken = bytes.subarray(0, message.length - this.#size);
        message.set(taken, this.#size);
        this.#size += taken.length;
        if (this.#size < message.length) {
            return null;
        }
        this.reset();
        return message;
    }

    // Of the message in progress: how much of it is here, and its first byte.
    get size() { return this.#size; }

    get first() { return this.#size > 0 ? this.#message[0] : undefined; }

    reset() {
        this.#message = null;
        this.#size = 0;
        this.#counter = 0;
    }
}
