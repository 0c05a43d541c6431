// What a user's hand or the camera's insides do to it: the commands of kzcamctl as controls.
import {act} from './desk.js';
import {h, labelled, setAttribute, setText} from './dom.js';
import {cards, hexOf, modes, status} from './names.js';
import {tried} from './problems.js';

const kLedLengths = [5, 18];  // bytes that the camera takes

function button(text, action, className = '') {
    return h('button', {type: 'button', class: className, onclick: tried(action)}, text);
}

// One of several, of which the camera says which one holds.
function choice(legend, options, choose) {
    const name = `choice-${legend.toLowerCase().split(/\W/)[0]}`;
    const inputs = options.map(([value]) => h('input', {type: 'radio', name, value, onchange: tried(() => choose(value))}));
    const element = h('fieldset', {class: 'choice'}, h('legend', {}, legend),
        h('div', {}, options.map(([, text], index) => h('label', {}, inputs[index], h('span', {}, text)))));
    return {element, show: (value) => inputs.forEach((input) => { input.checked = input.value === String(value); })};
}

// The words of a command line; quotation marks keep blanks.
export function wordsOf(line) {
    return [...line.matchAll(/"([^"]*)"|(\S+)/g)].map((match) => match[1] ?? match[2]);
}

function commandLine() {
    const output = h('pre', {class: 'output', id: 'command-output', 'aria-live': 'polite'});
    const input = h('input', {type: 'text', name: 'command', autocomplete: 'off', spellcheck: 'false',
        placeholder: 'ota percent 40', 'aria-describedby': 'command-output'});
    const run = async (event) => {
        event.preventDefault();
        try {
            const answer = await act(...wordsOf(input.value.replace(/^\s*kzcamctl\s+/, '')));
            setText(output, answer === null ? 'done' : JSON.stringify(answer, null, 1));
        } catch (error) {
            setText(output, error.message);
        }
    };
    return h('form', {class: 'command', onsubmit: run}, labelled('Any kzcamctl command', input),
        h('button', {type: 'submit'}, 'Run'), output);
}

function buffersForm() {
    const text = h('input', {type: 'text', name: 'display', value: 'Hello camera', autocomplete: 'off'});
    const levels = h('input', {type: 'text', name: 'led', value: '0 64 128 255 128 64 0', autocomplete: 'off'});
    const send = (what, bytes) => act(what, hexOf(bytes).replaceAll(' ', ''));
    const display = tried((event) => {
        event.preventDefault();
        return send('lcd', new TextEncoder().encode(text.value.padEnd(kLedLengths[0])));
    });
    const led = tried((event) => {
        event.preventDefault();
        const bytes = levels.value.split(/[\s,]+/).filter(Boolean).map(Number);
        if (bytes.some((byte) => !Number.isInteger(byte) || byte < 0 || byte > 255) ||
            bytes.length < kLedLengths[0] || bytes.length > kLedLengths[1]) {
            throw new Error('the LEDs take 5 to 18 numbers from 0 to 255');
        }
        return send('led', bytes);
    });
    return [
        h('form', {class: 'inline', onsubmit: display}, labelled('Display shows', text), h('button', {type: 'submit'}, 'Send')),
        h('form', {class: 'inline', onsubmit: led}, labelled('LEDs show', levels), h('button', {type: 'submit'}, 'Send')),
    ];
}

// Presets have numbers; docs/protocol.md says how a phone lists them.
function presetForm(desk, phone) {
    const number = h('input', {type: 'text', name: 'preset', inputmode: 'numeric', autocomplete: 'off', value: '0'});
    const load = tried((event) => {
        event.preventDefault();
        return phone.ask((camera) => camera.command('load-preset', {preset: Number(number.value)}));
    });
    return h('form', {class: 'inline', onsubmit: load}, labelled('Preset', number), h('button', {type: 'submit'}, 'Load'));
}

// A status field that is given a value, by its name.
function statusForm(desk) {
    const fields = h('select', {name: 'status-field'});
    const value = h('input', {type: 'text', name: 'status-value', autocomplete: 'off'});
    const show = () => { value.value = desk.status(Number(fields.value)) ?? ''; };
    fields.addEventListener('change', show);
    desk.on('state', ({camera}) => {
        if (camera && fields.options.length !== camera.status.length) {
            fields.replaceChildren(...camera.status.map(({id, name}) => h('option', {value: id}, name ?? `Status ${id}`)));
            show();
        }
    });
    const set = tried((event) => {
        event.preventDefault();
        return act('status', fields.value, value.value);
    });
    return h('form', {class: 'inline status', onsubmit: set}, labelled('Status field', fields), labelled('Value', value),
        h('button', {type: 'submit'}, 'Set'));
}

export function showControls(desk, section, phone) {
    const shutter = button('Start recording', () => act('record', desk.state.camera.capturing ? 'off' : 'on'), 'shutter');
    const sleep = button('Suspend', () => act(desk.state.camera.suspended ? 'resume' : 'suspend'));
    const undo = button('Undo', () => act('undo'));
    const mode = choice('Mode', modes.map((text, index) => [index, text]), (value) => phone.ask((camera) => (
        camera.command('mode', {mode: value}))));
    const card = choice('SD card', cards.map((text) => [text, text]), (value) => act('sd', value));
    const radio = choice('Radio, packets a second', [[0, 'any'], [100, '100'], [20, '20'], ['stop', 'stopped']],
        (value) => (value === 'stop' ? act('radio', 'stop') : act('radio', 'go').then(() => act('radio', 'slow', value))));
    const level = h('output', {});
    const battery = h('input', {type: 'range', min: 0, max: 100, name: 'battery',
        oninput: () => setText(level, `${battery.value}%`), onchange: tried(() => act('battery', battery.value))});
    const power = h('input', {type: 'checkbox', role: 'switch', name: 'power',
        onchange: tried(() => act('power', power.checked ? 'on' : 'off'))});
    section.append(
        h('div', {class: 'row'}, shutter, sleep, undo), mode.element,
        h('div', {class: 'row'}, labelled('Battery', h('span', {class: 'slider'}, battery, level), 'grow'),
            h('label', {class: 'switch'}, power, h('span', {}, 'External power'))),
        card.element, radio.element,
        h('details', {}, h('summary', {}, 'Buffers, presets, status fields, any command'), buffersForm(), presetForm(desk, phone), statusForm(desk), commandLine()));

    desk.on('state', ({camera}) => {
        for (const control of section.querySelectorAll('button, input, select')) {
            setAttribute(control, 'disabled', camera === null);
        }
        if (camera === null) {
            return;
        }
        setText(shutter, camera.capturing ? 'Stop recording' : 'Start recording');
        shutter.classList.toggle('on', camera.capturing);
        setText(sleep, camera.suspended ? 'Resume' : 'Suspend');
        setText(undo, camera.changesToUndo > 0 ? `Undo (${camera.changesToUndo})` : 'Undo');
        setAttribute(undo, 'disabled', camera.changesToUndo === 0);
        mode.show(desk.status(status.mode));
        card.show(cards[desk.status(status.card)]);
        radio.show(camera.radio?.reading === false ? 'stop' : camera.radio?.packetsPerSecond);
        power.checked = desk.status(status.externalPower) === 1;
        if (document.activeElement !== battery || !battery.matches(':active')) {
            battery.value = desk.status(status.battery);
            setText(level, `${battery.value}%`);
        }
    });
}
