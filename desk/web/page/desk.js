// The desk that serves this page: requests, and the one stream that carries the state and what passes between every
// device and the camera. A browser opens six connections to one host, so that a page must not keep more than one.

const kRetryDelay = 2000;  // ms, when the desk refuses the stream; otherwise the browser comes back by itself

export class DeskError extends Error {
    constructor(code, message) {
        super(message);
        this.code = code;
    }
}

export async function ask(method, path, body) {
    const options = body === undefined ? {method} :
        {method, headers: {'content-type': 'application/json'}, body: JSON.stringify(body)};
    const response = await fetch(path, options).catch(() => {
        throw new DeskError('no-desk', 'the desk does not answer');
    });
    const answer = response.status === 204 ? null : await response.json();
    if (!response.ok) {
        throw new DeskError(answer.error.code, answer.error.message);
    }
    return answer;
}

// One command of kzcamctl; its output.
export async function act(...words) {
    return (await ask('POST', 'do', {command: words.map(String)})).output;
}

export const write = (device, stream, message) => ask('POST', `devices/${device}/write`, {stream, message});

const kEntries = ['packet', 'message', 'gate', 'lost', 'end'];

// Events: `state`; `link`, the desk came or went; `reset`, all that was seen comes once more; `entry`, one event of a
// device. Until the first state entries are from the past (`isLive` is false).
export class Desk extends EventTarget {
    state = null;
    isLinked = false;
    isLive = false;

    follow() {
        const source = new EventSource('events?devices=all');
        source.addEventListener('open', () => {
            this.isLive = false;
            this.#emit('reset');
        });
        source.addEventListener('error', () => {
            this.#link(false);
            if (source.readyState === EventSource.CLOSED) {
                setTimeout(() => this.follow(), kRetryDelay);
            }
        });
        source.addEventListener('state', (event) => {
            this.state = JSON.parse(event.data);
            this.isLive = true;
            this.#link(true);
            this.#emit('state', this.state);
        });
        for (const kind of kEntries) {
            source.addEventListener(kind, (event) => {
                const entry = JSON.parse(event.data);
                if (entry.device !== undefined) {
                    this.#emit('entry', {...entry, event: kind, id: Number(event.lastEventId), isLive: this.isLive});
                }
            });
        }
    }

    // `signal` ends it.
    on(kind, listener, signal) {
        this.addEventListener(kind, (event) => listener(event.detail), {signal});
    }

    // Of a status field by its id; undefined when the camera has none.
    status(id) {
        return this.state?.camera?.status.find((field) => field.id === id)?.value;
    }

    #link(isLinked) {
        if (isLinked !== this.isLinked) {
            this.isLinked = isLinked;
            this.#emit('link', isLinked);
        }
    }

    #emit(kind, detail) {
        this.dispatchEvent(new CustomEvent(kind, {detail}));
    }
}
