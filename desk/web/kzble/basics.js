// What every part of the library needs: its one kind of error, events, work one after the other, and bytes as text.

// Every error of the library. `code` is for programs:
//   refused       the camera said no; `result` is {code, name}
//   timed-out     no answer before the deadline
//   disconnected  the link has ended
//   invalid       the caller's request cannot be written, for example an unknown name
//   malformed     what the camera sent cannot be read
//   transport     the link's carrier failed (the desk, Web Bluetooth)
export class CameraError extends Error {
    constructor(code, message, {command = null, result = null, cause} = {}) {
        super(message, cause && {cause});
        this.name = 'CameraError';
        this.code = code;
        this.command = command;  // name of the request, where there is one
        this.result = result;
    }
}

// Events by name. A listener that throws is reported and harms neither the sender nor the other listeners.
export class Emitter {
    #listeners = new Map();

    // Returns a function that removes the listener.
    on(name, listener) {
        const listeners = this.#listeners.get(name) ?? new Set();
        this.#listeners.set(name, listeners);
        listeners.add(listener);
        return () => listeners.delete(listener);
    }

    emit(name, event) {
        for (const listener of [...(this.#listeners.get(name) ?? [])]) {
            callSafely(listener, event);
        }
    }
}

export function callSafely(listener, event) {
    try {
        listener(event);
    } catch (error) {
        console.error('a listener failed:', error);
    }
}

// Runs what it is given one after the other, also behind one that failed.
export class Sequence {
    #last = Promise.resolve();

    run(work) {
        const done = this.#last.then(work);
        this.#last = done.catch(() => {});
        return done;
    }
}

export function hex(bytes) { return Array.from(bytes, (byte) => byte.toString(16).padStart(2, '0')).join(' '); }

// Bytes from hexadecimal digits, which blanks may separate.
export function bytesOf(given) {
    if (given instanceof Uint8Array) {
        return given;
    }
    const digits = String(given).replace(/\s+/g, '');
    if (digits.length % 2 !== 0 || /[^0-9a-f]/i.test(digits)) {
        throw new CameraError('invalid', 'bytes are written as hexadecimal digits');
    }
    return Uint8Array.from(digits.match(/../g) ?? [], (pair) => parseInt(pair, 16));
}

export function joined(parts) {
    const bytes = new Uint8Array(parts.reduce((size, part) => size + part.length, 0));
    let at = 0;
    for (const part of parts) {
        bytes.set(part, at);
        at += part.length;
    }
    return bytes;
}

// Names compare without case, and '-', '_' and ' ' count as the same.
export function folded(name) { return String(name).toLowerCase().replace(/[- ]/g, '_'); }
