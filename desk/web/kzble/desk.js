// The desk as a transport: a device of its own at the simulated camera, or a look at one that somebody else made.
import {bytesOf, CameraError, Emitter, hex} from './basics.js';

const kRequestTimeout = 10_000;  // ms; the desk itself gives up a write after 5 seconds
const kRetries = 3;              // of an event stream that broke
const kRetryDelay = 300;         // ms
const kLongestEvent = 1 << 20;   // characters

// Splits a stream of server-sent events; calls onEvent(name, data, id).
class EventParser {
    #buffer = '';
    #decoder = new TextDecoder();

    constructor(onEvent) { this.onEvent = onEvent; }

    add(bytes) {
        this.#buffer += this.#decoder.decode(bytes, {stream: true});
        for (let end; (end = this.#buffer.indexOf('\n\n')) >= 0;) {
            const lines = this.#buffer.slice(0, end).split('\n');
            this.#buffer = this.#buffer.slice(end + 2);
            const field = (name) => lines.find((line) => line.startsWith(name + ': '))?.slice(name.length + 2);
            if (field('event') !== undefined) {
                this.onEvent(field('event'), field('data') ?? '', field('id'));
            }
        }
        if (this.#buffer.length > kLongestEvent) {
            throw new CameraError('transport', 'an event of the desk is too long');
        }
    }
}

// Emits packet {stream, bytes, direction, time}, gate {descriptor, value, time}, lost {events} and end {reason}.
export class DeskTransport extends Emitter {
    #base;
    #wish;
    #aborter = new AbortController();
    #last = 0;
    #ended = false;

    // address: of the device, as "02:00:00:00:00:07"; type: a number or a name of deviceTypes in protocol.json; gates:
    // false leaves them closed; central: a sensor, to which the camera opens them; device: an existing device's number,
    // whose packets pass here while nothing can be written; from: only its events behind this id.
    constructor(baseUrl = '', {address, type, gates = true, central, device, from = 0} = {}) {
        super();
        this.#base = String(baseUrl).replace(/\/+$/, '');
        this.#wish = {address, type, gates, central};
        this.#last = from;
        this.device = device ?? null;  // its number; open() makes one
        this.readOnly = device !== undefined;
        this.opensGates = true;  // open() does it, or nobody is to do it
    }

    async open() {
        if (!this.readOnly) {
            const {device, connection, address, type} = await this.#ask('POST', '/devices', this.#wish);
            Object.assign(this, {device, connection, address, type});
        }
        try {
            this.#follow(await this.#listen());
        } catch (error) {
            await this.close();
            throw error;
        }
    }

    write(stream, bytes) { return this.#ask('POST', `/devices/${this.device}/write`, {stream, bytes: hex(bytes)}); }

    gate(descriptor, isOpen) {
        return this.#ask('POST', `/devices/${this.device}/ccc`, {descriptor, value: isOpen ? 1 : 0});
    }

    async close() {
        if (!this.#ended && !this.readOnly && this.device !== null) {
            await this.#ask('DELETE', `/devices/${this.device}`).catch(() => {});  // the desk may be gone
        }
        this.#end('closed here');
    }

    async #ask(method, path, body) {
        if (this.readOnly) {
            throw new CameraError(
                'invalid', `device ${this.device} belongs to somebody else: its packets can only be read`);
        }
        const headers = body ? {'content-type': 'application/json'} : {};
        return this.#fetch(
            path, {method, headers, body: body && JSON.stringify(body)},
            async (response) => (response.status === 204 ? null : response.json()));
    }

    async #fetch(path, options, read) {
        const aborter = new AbortController();
        const timer = setTimeout(() => aborter.abort(new Error('it does not answer')), kRequestTimeout);
        try {
            const response = await fetch(this.#base + path, {...options, signal: aborter.signal});
            if (!response.ok) {
                throw this.#refusal(response.status, await response.text());
            }
            return await read(response);
        } catch (error) {
            throw error instanceof CameraError ?
                error :
                new CameraError(
                    'transport', `the desk at ${this.#base}: ${error.cause?.message ?? error.message}`, {cause: error});
        } finally {
            clearTimeout(timer);
        }
    }

    #refusal(status, body) {
        let error = {};
        try {
            error = JSON.parse(body).error ?? {};
        } catch {
            // another server's page
        }
        const code = error.code === 'no-such-device' ? 'disconnected' : 'transport';
        return new CameraError(
            code, `the desk: ${error.message ?? `status ${status}`}`,
            {result: {code: error.code ?? status, name: error.message}});
    }

    // The answer's headers are waited for, so that no event is missed and a refusal is seen.
    async #listen() {
        const timer = setTimeout(() => this.#aborter.abort(new Error('it does not answer')), kRequestTimeout);
        try {
            const path = `${this.#base}/devices/${this.device}/events${this.#last > 0 ? `?from=${this.#last}` : ''}`;
            const response = await fetch(path, {signal: this.#aborter.signal});
            if (!response.ok) {
                throw this.#refusal(response.status, await response.text());
            }
            return response.body.getReader();
        } catch (error) {
            throw error instanceof CameraError ?
                error :
                new CameraError(
                    'transport', `the desk at ${this.#base}: ${error.cause?.message ?? error.message}`, {cause: error});
        } finally {
            clearTimeout(timer);
        }
    }

    // Reads events until the device ends. A stream that breaks is taken up again behind its last event.
    async #follow(reader) {
        let reason = 'the event stream of the desk broke';
        for (let tries = 0; !this.#ended && tries < kRetries; ++tries) {
            try {
                reader ??= await this.#listen();
                await this.#readAll(reader, () => {
                    tries = 0;
                });
            } catch (error) {
                reason = error.code === 'disconnected' ? error.message : reason;
                tries = error.code === 'disconnected' ? kRetries : tries;
            }
            reader = null;
            if (!this.#ended) {
                await new Promise((resolve) => {
                    setTimeout(resolve, kRetryDelay);
                });
            }
        }
        this.#end(reason);
    }

    async #readAll(reader, onEvent) {
        const parser = new EventParser((name, data, id) => {
            onEvent();
            this.#last = Number(id) || this.#last;
            this.#take(name, data);
        });
        for (let part; !this.#ended && !(part = await reader.read()).done;) {
            parser.add(part.value);
        }
    }

    #take(name, data) {
        let event;
        try {
            event = JSON.parse(data);
            if (name === 'packet') {
                event.bytes = bytesOf(event.bytes);
            }
            event.time = new Date(event.time);
        } catch {
            return;  // not one of the desk's
        }
        if (name === 'end') {
            this.#end(event.reason);
        } else if (['packet', 'gate', 'lost'].includes(name)) {
            this.emit(name, event);
        }
    }

    #end(reason) {
        if (!this.#ended) {
            this.#ended = true;
            this.emit('end', {reason});
            this.#aborter.abort();
        }
    }
}
