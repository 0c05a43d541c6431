// The samples of sensors, taken from what they write: a sensor registers keys with their layout, then sends samples of
// them. docs/protocol.md has the bytes.
import {bytesOf, printable} from './names.js';

const kRequests = 17;  // stream
const kRegister = 2;
const kKey = 3;
const kSample = 1;
const kBigEndian = 1;  // bit of a key's flags
const kKept = 1200;    // samples of one key

// By the type character: bytes, and how to read them.
const kTypes = {
    b: [1, (view, at) => view.getInt8(at)], B: [1, (view, at) => view.getUint8(at)],
    c: [1, (view, at) => view.getUint8(at)], u: [1, (view, at) => view.getUint8(at)],
    s: [2, (view, at, little) => view.getInt16(at, little)], S: [2, (view, at, little) => view.getUint16(at, little)],
    l: [4, (view, at, little) => view.getInt32(at, little)], L: [4, (view, at, little) => view.getUint32(at, little)],
    f: [4, (view, at, little) => view.getFloat32(at, little)], d: [8, (view, at, little) => view.getFloat64(at, little)],
    q: [4, (view, at, little) => view.getInt32(at, little) / 65536],
    j: [8, (view, at, little) => Number(view.getBigInt64(at, little))],
    J: [8, (view, at, little) => Number(view.getBigUint64(at, little))],
};

function valuesOf({type, bytes, isLittle}, data) {
    const [width, read] = kTypes[type] ?? [1, kTypes.B[1]];
    const view = new DataView(Uint8Array.from(data).buffer);
    const values = [];
    for (let at = 0; at + width <= Math.min(bytes, data.length); at += width) {
        values.push(read(view, at, isLittle));
    }
    return values;
}

export class Samples {
    keys = new Map();  // by "device:number": {device, sensor, name, samples: [{time, values}]}
    #sensors = new Map();  // names by device
    #layouts = new Map();

    constructor(desk) {
        desk.on('reset', () => {
            this.keys.clear();
            this.#layouts.clear();
            this.#sensors.clear();
        });
        desk.on('entry', (entry) => {
            if (entry.event === 'message' && entry.direction === 'write' && entry.stream === kRequests) {
                this.#take(entry.device, Date.parse(entry.time), bytesOf(entry.bytes));
            }
        });
    }

    #take(device, time, [what, ...rest]) {
        if (what === kRegister) {
            this.#sensors.set(device, printable(rest.slice(1)));
        } else if (what === kKey && rest.length === 10) {
            const [number, , type, size, repeat, flags] = rest.slice(4);
            this.#layouts.set(`${device}:${number}`, {name: printable(rest.slice(0, 4)).trim(), type: String.fromCharCode(type),
                bytes: size * repeat, isLittle: (flags & kBigEndian) === 0});
        } else if (what === kSample) {
            this.#sample(device, time, rest);
        }
    }

    // A sample whose registration is no longer kept is shown byte by byte.
    #sample(device, time, [number, ...data]) {
        const key = `${device}:${number}`;
        const layout = this.#layouts.get(key) ?? {name: `key ${number}`, type: 'B', bytes: data.length, isLittle: true};
        const known = this.keys.get(key) ?? {device, sensor: '', samples: []};
        known.name = layout.name;
        known.sensor = this.#sensors.get(device) ?? `device ${device}`;
        known.samples.push({time, values: valuesOf(layout, data)});
        if (known.samples.length > kKept) {
            known.samples.splice(0, known.samples.length - kKept);
        }
        this.keys.set(key, known);
    }
}
