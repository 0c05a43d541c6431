// Parameters, answers and values as bytes, by the types of protocol.json. Numbers that a double cannot hold are
// BigInts.
import {bytesOf, CameraError, folded, joined} from './basics.js';

const kNumberTypes = {
    u8: {size: 1},
    u16: {size: 2},
    i16: {size: 2, isSigned: true},
    u32: {size: 4},
    u32le: {size: 4, isLittle: true},
    number: {size: 0},  // as many bytes as it needs
};

export function bigEndian(bytes) {
    if (bytes.length <= 6) {
        return bytes.reduce((number, byte) => number * 256 + byte, 0);
    }
    const number = bytes.reduce((sum, byte) => (sum << 8n) | BigInt(byte), 0n);
    return number <= BigInt(Number.MAX_SAFE_INTEGER) ? Number(number) : number;
}

export function text(bytes) { return new TextDecoder().decode(bytes); }

// ---------------------------------------------------------------- writing

function numberBytes(field, number) {
    const {size, isSigned, isLittle} = kNumberTypes[field.type];
    const least = isSigned ? -(256 ** size) / 2 : 0;
    const most = (isSigned ? 256 ** size / 2 : 256 ** (size || 4)) - 1;
    if (!Number.isInteger(number) || number < least || number > most) {
        throw new CameraError('invalid', `${field.name} is a whole number from ${least} to ${most}`);
    }
    const bytes = [];
    for (let rest = number < 0 ? number + 256 ** size : number; bytes.length < (size || 1) || rest > 0;) {
        bytes.push(rest % 256);
        rest = Math.floor(rest / 256);
    }
    return Uint8Array.from(isLittle ? bytes : bytes.reverse());
}

// "15..8" -> {shift: 8, mask: 0xff}
function bitRange(range) {
    const [high, low = high] = range.split('..').map(Number);
    return {shift: low, mask: 2 ** (high - low + 1) - 1};
}

// A number may be given as it is, by the name of its meaning, or, where it has bits with names, as an object of these.
function numberOf(field, given) {
    if (field.bits && typeof given === 'object' && given !== null) {
        return Object.entries(field.bits).reduce((sum, [range, name]) => {
            const {shift, mask} = bitRange(range);
            return sum + (Number(valueNamed(given, name) ?? 0) & mask) * 2 ** shift;
        }, 0);
    }
    if (given === null && 'none' in field) {
        return field.none;
    }
    const named = Object.entries(field.values ?? {}).find(([, name]) => folded(name) === folded(given));
    const isNumber = ['number', 'boolean'].includes(typeof given) || /^-?[0-9]+$/.test(given);
    return named || isNumber ? Number(named ? named[0] : given) : NaN;
}

function valueNamed(values, name) {
    return Object.entries(values ?? {}).find(([other]) => folded(other) === folded(name))?.[1];
}

function fieldBytes(field, given) {
    if (field.type === 'record') {
        return joined(givenFields(field.fields, given).map(([inner, value]) => fieldBytes(inner, value)));
    }
    if (field.type === 'text') {
        return new TextEncoder().encode(given);
    }
    return field.type === 'bytes' ? bytesOf(given) : numberBytes(field, numberOf(field, given));
}

// The fields with what was given for them: by position, by name, or a single value. Optional ones may be left out at
// the end.
function givenFields(fields, given) {
    const isNamed =
        typeof given === 'object' && given !== null && !Array.isArray(given) && !(given instanceof Uint8Array);
    const isSingle = fields.length === 1 && !Array.isArray(given) &&
        (!isNamed ||
         (valueNamed(given, fields[0].name) === undefined && ('fields' in fields[0] || 'bits' in fields[0])));
    const pairs = fields.map(
        (field, index) =>
            [field,
             isSingle    ? given :
                 isNamed ? valueNamed(given, field.name) :
                           given?.[index]]);
    const unknown = isNamed && !isSingle &&
        Object.keys(given).find((name) => !fields.some((field) => folded(field.name) === folded(name)));
    if (unknown) {
        throw new CameraError('invalid', `there is no parameter "${unknown}"`);
    }
    while (pairs.length > 0 && pairs.at(-1)[1] === undefined && pairs.at(-1)[0].optional) {
        pairs.pop();
    }
    const missing = pairs.find(([, value]) => value === undefined);
    if (missing) {
        throw new CameraError('invalid', `${missing[0].name} is missing`);
    }
    return pairs;
}

// A parameter of a command is its length and its bytes, and so is a setting's option; the sensor interface has no
// lengths.
export function requestBytes(request, given) {
    const {params} = request.row;
    if (params === 'any') {
        return joined([request.head, given === undefined ? [] : bytesOf(given)]);
    }
    const parts = [request.kind === 'setting' ? [] : request.head];
    for (const [field, value] of givenFields(params, given)) {
        const bytes = fieldBytes(field, value);
        if (isPrefixed(request, field)) {
            if (bytes.length < 1 || bytes.length > 255) {
                throw new CameraError('invalid', `${field.name} has to have 1 to 255 bytes`);
            }
            parts.push([bytes.length]);
        }
        parts.push(bytes);
    }
    return joined(parts);
}

function isPrefixed(request, field) {
    return request.kind === 'command' || (request.kind === 'setting' && field !== request.row.params[0]);
}

// ---------------------------------------------------------------- reading

class Reader {
    constructor(bytes) {
        this.bytes = bytes;
        this.at = 0;
    }

    get left() { return this.bytes.length - this.at; }

    take(size) {
        if (size > this.left) {
            throw new CameraError('malformed', 'a message ends in the middle of a value');
        }
        this.at += size;
        return this.bytes.subarray(this.at - size, this.at);
    }
}

function fieldValue(field, bytes) {
    if (field.type === 'record') {
        return fieldValues(field.fields, new Reader(bytes));
    }
    if (field.type === 'text') {
        return text(bytes);
    }
    if (field.type === 'bytes') {
        return bytes;
    }
    const {size, isSigned, isLittle} = kNumberTypes[field.type];
    // Of a longer parameter the first bytes count, or, where the number has no width, its low 32 bits.
    const counted = size > 0 ? bytes.subarray(0, size) : bytes.subarray(-4);
    let number = bigEndian(isLittle ? counted.slice().reverse() : counted);
    if (isSigned && number >= 256 ** size / 2) {
        number -= 256 ** size;
    }
    return meaningOf(field, number);
}

function meaningOf(field, number) {
    if (number === field.none) {
        return null;
    }
    if (field.bits) {
        return Object.fromEntries(Object.entries(field.bits).map(([range, name]) => {
            const {shift, mask} = bitRange(range);
            return [name, (number >> shift) & mask];
        }));
    }
    return field.values?.[number] ?? number;
}

// Fields without lengths; a text or bytes take what is left, unless their length is fixed.
function fieldValues(fields, reader) {
    const values = {};
    for (const field of fields) {
        if (reader.left > 0 || !field.optional) {
            const isFixed = field.min !== undefined && field.min === field.max;
            const size = kNumberTypes[field.type]?.size ?? (isFixed ? field.min : reader.left);
            values[field.name] = fieldValue(field, reader.take(size));
        }
    }
    return values;
}

function prefixedValues(fields, reader) {
    const values = {};
    for (const field of fields) {
        if (reader.left > 0 || !field.optional) {
            const bytes = reader.take(reader.take(1)[0]);
            if (bytes.length < (kNumberTypes[field.type]?.size ?? 0)) {
                throw new CameraError('malformed', `${field.name} is too short`);
            }
            values[field.name] = fieldValue(field, bytes);
        }
    }
    return values;
}

// The values of a request by name.
export function requestValues(request, bytes) {
    const {params} = request.row;
    const reader = new Reader(bytes.subarray(request.kind === 'setting' ? 0 : request.head.length));
    if (!Array.isArray(params)) {
        return {};
    }
    if (request.kind === 'command') {
        return prefixedValues(params, reader);
    }
    return request.kind === 'setting' ?
        {...fieldValues(params.slice(0, 1), reader), ...prefixedValues(params.slice(1), reader)} :
        fieldValues(params, reader);
}

// The values of a command's answer, behind id and result.
export function answerValues(request, bytes) {
    const {answer} = request.row;
    return Array.isArray(answer) ? prefixedValues(answer, new Reader(bytes)) : {};
}

// Entries "id, length, bytes".
export function entriesOf(bytes) {
    const reader = new Reader(bytes);
    const entries = [];
    while (reader.left > 0) {
        const id = reader.take(1)[0];
        entries.push({id, bytes: reader.take(reader.take(1)[0])});
    }
    return entries;
}

// The value of a setting or status field: a number, a text, or null when the camera has none.
export function valueOf(protocol, ids, id, bytes) {
    if (protocol.width(ids, id) === 'text') {
        return text(bytes);
    }
    return bytes.length === 0 ? null : bigEndian(bytes);
}

export function optionBytes(protocol, id, option) {
    const size = Math.max(Number(protocol.width('settings', id)) || 1, option > 0xff ? 4 : 1);
    return Uint8Array.from({length: size}, (_, index) => Math.floor(option / 256 ** (size - 1 - index)) % 256);
}
