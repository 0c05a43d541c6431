// The page's own phone. It keeps its address, and so its device, as long as the page's tab lives: after a reload it is
// found again. Two tabs have two.
import {Emitter, hex} from '../kzble/basics.js';
import {CameraError, connect} from '../kzble.js';
import {ask} from './desk.js';
import {bytesOf} from './names.js';

const kMostTabs = 8;
const kRetryDelay = 1500;  // ms between two tries to connect
const kBrowser = 'kzdesk-browser';

// Two bytes that tell this browser from another one, which does not know our tabs.
function browserBytes() {
    let known = localStorage.getItem(kBrowser);
    if (!/^[0-9a-f]{2}:[0-9a-f]{2}$/.test(known ?? '')) {
        known = hex(crypto.getRandomValues(new Uint8Array(2))).replace(' ', ':');
        localStorage.setItem(kBrowser, known);
    }
    return known;
}

// The first number that no other tab holds; ours is free again when the page goes. Pages that are not from this machine
// have no locks, and so a number by chance.
async function takeTab() {
    for (let tab = 1; navigator.locks && tab <= kMostTabs; ++tab) {
        const isOurs = await new Promise((resolve) => {
            navigator.locks.request(`kzdesk-tab-${tab}`, {ifAvailable: true}, (lock) => {
                resolve(lock !== null);
                return lock && new Promise(() => {});
            });
        });
        if (isOurs) {
            return tab;
        }
    }
    return 100 + Math.floor(Math.random() * 100);
}

// Devices that have ended, and why. The state may still show them for a moment.
class EndedDevices extends Map {
    constructor(desk) {
        super();
        desk.on('reset', () => this.clear());
        desk.on('entry', ({event, device, reason}) => event === 'end' && this.set(device, reason));
    }
}

// A device of the desk as kzble.js wants it, over the page's only event stream.
class PageTransport extends Emitter {
    opensGates = true;
    device = null;
    #isSeen = false;
    #over = new AbortController();

    constructor(desk, address, ended) {
        super();
        this.desk = desk;
        this.address = address;
        this.ended = ended;
    }

    async open() {
        const known = this.desk.state.devices.find((one) => one.address === this.address && !this.ended.has(one.device));
        this.#isSeen = known !== undefined;
        this.device = (known ?? await ask('POST', 'devices', {address: this.address, type: 'phone', gates: true})).device;
        this.desk.on('entry', (entry) => this.#take(entry), this.#over.signal);
        this.desk.on('state', ({devices}) => {
            const isThere = devices.some((one) => one.device === this.device && one.address === this.address);
            this.#isSeen ||= isThere;
            if (this.#isSeen && !isThere) {
                this.#end('the desk does not know it any more');
            }
        }, this.#over.signal);
        if (this.ended.has(this.device)) {
            this.#end(this.ended.get(this.device));
        }
    }

    write(stream, bytes) {
        return this.#askDevice('write', {stream, bytes: hex(bytes)});
    }

    gate(descriptor, isOpen) {
        return this.#askDevice('ccc', {descriptor, value: isOpen ? 1 : 0});
    }

    async close() {
        await ask('DELETE', `devices/${this.device}`).catch(() => {});  // it may be gone
        this.#end('closed here');
    }

    async #askDevice(what, body) {
        try {
            return await ask('POST', `devices/${this.device}/${what}`, body);
        } catch (error) {
            throw error.code === 'no-such-device' ? new CameraError('disconnected', error.message) : error;
        }
    }

    // An end counts also when it came while the page did not hear of it.
    #take(entry) {
        if (entry.device !== this.device || !(entry.isLive || entry.event === 'end')) {
            return;
        }
        if (entry.event === 'packet' && entry.direction === 'notify') {
            this.emit('packet', {stream: entry.stream, bytes: Uint8Array.from(bytesOf(entry.bytes)), direction: 'notify',
                time: new Date(entry.time)});
        } else if (entry.event === 'lost') {
            this.emit('lost', {events: entry.events});
        } else if (entry.event === 'end') {
            this.#end(entry.reason);
        }
    }

    #end(reason) {
        if (!this.#over.signal.aborted) {
            this.#over.abort();
            this.emit('end', {reason});
        }
    }
}

// Events: connect {camera, device}, end {reason}, and failed: it could not connect, and tries again.
export class Phone extends Emitter {
    camera = null;
    device = null;
    problem = null;  // why it is not connected, once that is known
    #isTrying = false;
    #isWaiting = false;

    constructor(desk, protocol, catalogue) {
        super();
        this.desk = desk;
        this.protocol = protocol;
        this.catalogue = catalogue;
        this.tab = takeTab();
        this.ended = new EndedDevices(desk);
        desk.on('state', () => this.#connectIfNeeded());
    }

    // What to say while it is not connected.
    get lack() {
        return `the phone of this page is not connected${this.problem ? `: ${this.problem}` : ''}`;
    }

    // Runs `work` with the connected Camera; the page says when there is none.
    async ask(work) {
        if (!this.camera) {
            throw new CameraError('disconnected', this.lack);
        }
        return work(this.camera);
    }

    #connectIfNeeded() {
        if (this.desk.state?.camera && this.desk.isLinked && !this.camera && !this.#isTrying && !this.#isWaiting) {
            this.#connect();
        }
    }

    // By then the state does not show a device any more that has just ended.
    #tryLater() {
        this.#isWaiting = true;
        setTimeout(() => {
            this.#isWaiting = false;
            this.#connectIfNeeded();
        }, kRetryDelay);
    }

    async #connect() {
        this.#isTrying = true;
        try {
            const tab = (await this.tab).toString(16).padStart(2, '0');
            const transport = new PageTransport(this.desk, `02:00:70:${browserBytes()}:${tab}`, this.ended);
            const camera = await connect(transport, this.protocol, {catalogue: this.catalogue});
            camera.on('end', ({reason}) => this.#gone(reason));
            this.camera = camera;
            this.problem = null;
            this.device = transport.device;
            this.emit('connect', {camera, device: transport.device});
        } catch (error) {
            this.problem = error.message;
            this.#tryLater();
            this.emit('failed', error);
        }
        this.#isTrying = false;
    }

    #gone(reason) {
        this.camera = null;
        this.device = null;
        this.problem = reason;
        this.#tryLater();
        this.emit('end', {reason});
    }
}
