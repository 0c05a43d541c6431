// Protobuf messages by the numbers of their fields; their schemas are in docs/protocol.md.
import {CameraError, joined} from './basics.js';

const kVarint = 0;
const kFixed64 = 1;
const kLengthDelimited = 2;
const kFixed32 = 5;

function varint(number) {
    const bytes = [];
    let rest = BigInt.asUintN(64, BigInt(number));
    for (; rest > 0x7fn; rest >>= 7n) {
        bytes.push(Number(rest & 0x7fn) | 0x80);
    }
    return [...bytes, Number(rest)];
}

function field(number, value) {
    if (value === undefined || value === null) {
        return [];
    }
    if (Array.isArray(value)) {
        return value.flatMap((one) => field(number, one));
    }
    if (typeof value === 'number' || typeof value === 'bigint' || typeof value === 'boolean') {
        return [varint(number * 8 + kVarint), varint(value)];
    }
    const bytes = typeof value === 'string' ? new TextEncoder().encode(value) : messageBytes(value);
    return [varint(number * 8 + kLengthDelimited), varint(bytes.length), bytes];
}

// {1: 5, 2: [1, 2], 3: "text", 4: {1: true}} as a message: whole numbers, repeated fields, texts, bytes and messages.
export function messageBytes(fields) {
    if (fields instanceof Uint8Array) {
        return fields;
    }
    try {
        return joined(Object.entries(fields ?? {}).flatMap(([number, value]) => field(Number(number), value)));
    } catch (error) {
        throw new CameraError('invalid', `these fields are no message: ${error.message}`, {cause: error});
    }
}

// The fields of a message in their order, each {field, value}; what has a length stays bytes, because only the schema
// knows whether it is a text or a message.
export function fieldsOf(bytes) {
    let at = 0;
    const take = (size) => {
        if (size > bytes.length - at) {
            throw new CameraError('malformed', 'a message ends in the middle of a field');
        }
        at += size;
        return bytes.subarray(at - size, at);
    };
    const takeVarint = () => {
        let number = 0n;
        for (let shift = 0n; shift < 70n; shift += 7n) {
            const [byte] = take(1);
            number |= BigInt(byte & 0x7f) << shift;
            if (byte < 0x80) {
                const signed = BigInt.asIntN(64, number);
                return Number.isSafeInteger(Number(signed)) ? Number(signed) : signed;
            }
        }
        throw new CameraError('malformed', 'a number is too long');
    };
    const takeValue = (type) => {
        switch (type) {
            case kVarint:
                return takeVarint();
            case kFixed64:
                return take(8);
            case kFixed32:
                return take(4);
            case kLengthDelimited: {
                const size = takeVarint();
                return take(size >= 0 ? Number(size) : Infinity);
            }
            default:
                throw new CameraError('malformed', `a field has the unknown type ${type}`);
        }
    };
    const fields = [];
    while (at < bytes.length) {
        const tag = Number(takeVarint());
        fields.push({field: Math.floor(tag / 8), value: takeValue(((tag % 8) + 8) % 8)});
    }
    return fields;
}
