// A decoded message (kzble's Decoder) in words: a short line for the log, and everything for who opens it.
import {hexOf, printable} from './names.js';

const kShortItems = 3;

function bytesText(bytes) {
    const text = printable(bytes);
    return bytes.length > 0 && !text.includes('·') ? `"${text}"` : hexOf(bytes);
}

function valueText(value) {
    if (value instanceof Uint8Array || Array.isArray(value)) {
        const bytes = [...value];
        return bytes.every((byte) => Number.isInteger(byte)) ? bytesText(bytes) : JSON.stringify(value);
    }
    return typeof value === 'object' && value !== null ? JSON.stringify(value, (_, one) => (typeof one === 'bigint' ? String(one) : one)) :
        String(value ?? '–');
}

// Each as a short text.
// The values of a setting's request are its id and option, which `settings` has with their names.
function items({values, settings, statuses, capabilities, ids, fields}) {
    return [
        ...Object.entries(settings ? {} : values ?? {}).map(([name, value]) => `${name} ${valueText(value)}`),
        ...(settings ?? []).map(({name, value, option}) => (value === undefined ? name : `${name} ${option ?? valueText(value)}`)),
        ...(statuses ?? []).map(({name, value}) => `${name} ${valueText(value)}`),
        ...(capabilities ?? []).map(({name, options}) => `${name}: ${options.map((one) => one.name ?? one.id).join(', ')}`),
        ...(ids ?? []).map(({name}) => name),
        ...(fields ?? []).map(({field, value}) => `field ${field} ${valueText(value)}`),
    ];
}

function resultText({what, result, problem}) {
    if (problem) {
        return problem;
    }
    return result && what !== 'request' && !/success/i.test(result.name) ? `${result.name} (${result.code})` : '';
}

export function shortText(meaning) {
    const all = items(meaning);
    const more = all.length > kShortItems ? [`and ${all.length - kShortItems} more`] : [];
    const text = [resultText(meaning), ...all.slice(0, kShortItems), ...more].filter(Boolean).join(' · ');
    return text || (meaning.what === 'answer' && meaning.result?.name) || '';
}

export function fullText(meaning) {
    const head = `${meaning.what} ${meaning.name ?? ''}${meaning.does ? `: ${meaning.does}` : ''}`;
    return [head, meaning.result && `result ${meaning.result.name} (${meaning.result.code})`, meaning.problem, ...items(meaning)]
        .filter(Boolean).join('\n');
}

export function isRefused({what, result, problem}) {
    return Boolean(problem) || (what === 'answer' && Boolean(result) && !/success/i.test(result.name));
}
