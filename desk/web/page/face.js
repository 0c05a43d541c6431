// The camera's face: what its own screen, lamp and battery would show, and below it the buffers that it sends to
// accessories.
import {h, setAttribute, setText} from './dom.js';
import {clock, modes, size, status} from './names.js';

const kLowBattery = 15;  // percent

function svg(tag, attributes, ...children) {
    const element = document.createElementNS('http://www.w3.org/2000/svg', tag);
    Object.entries(attributes).forEach(([name, value]) => element.setAttribute(name, value));
    element.append(...children);
    return element;
}

function batteryGlyph() {
    const level = svg('rect', {x: 2.5, y: 2.5, width: 0, height: 7, rx: 1, class: 'level'});
    const glyph = svg('svg', {viewBox: '0 0 27 12', width: 27, height: 12, class: 'glyph', 'aria-hidden': 'true'},
        svg('rect', {x: 0.75, y: 0.75, width: 22.5, height: 10.5, rx: 2.5, class: 'outline'}),
        svg('rect', {x: 24.5, y: 4, width: 2, height: 4, rx: 1, class: 'pole'}), level);
    return {glyph, show: (percent) => level.setAttribute('width', (percent * 0.19).toFixed(1))};
}

function cardText(desk) {
    const card = desk.status(status.card);
    if (card === 2) {
        return 'No card';
    }
    return card === 1 ? 'Card full' : `${size(desk.status(status.bytesFree) ?? 0)} free`;
}

function roomText(desk) {
    if (desk.status(status.card) !== 0) {
        return '';
    }
    return desk.status(status.mode) === 0 ? `${clock(desk.status(status.videoSecondsLeft) ?? 0)} left` :
        `${desk.status(status.photosLeft) ?? 0} photos left`;
}

const kWarnings = [
    [status.tooHot, 'Too hot'], [status.tooCold, 'Too cold'], [status.busy, 'Busy'], [status.locating, 'Beeping'],
    [status.accessPoint, 'Access point on'],
];

const kFacts = [
    ['Network', (desk) => desk.status(status.joinedNetwork) || desk.status(status.ownNetwork)],
    ['Clients', (desk) => desk.status(status.clients)],
    ['Preset', (desk) => desk.status(status.preset)],
    ['Moments', (desk) => desk.status(status.momentsTagged)],
    ['Media', (desk) => `${desk.status(status.videos)} videos, ${desk.status(status.photos)} photos`],
];

export function showFace(desk, section) {
    const battery = batteryGlyph();
    const mode = h('span', {class: 'mode'});
    const room = h('span', {class: 'room'});
    const time = h('span', {class: 'time'});
    const percent = h('span', {});
    const charge = h('span', {class: 'charge'}, battery.glyph, percent);
    const card = h('span', {class: 'card'});
    const screen = h('div', {class: 'screen'},
        h('div', {class: 'line'}, mode, room),
        h('div', {class: 'line middle'}, h('span', {class: 'dot', 'aria-hidden': 'true'}), time),
        h('div', {class: 'line'}, charge, card));
    const said = h('p', {class: 'hidden', role: 'status', id: 'recording'});
    const warnings = h('ul', {class: 'warnings', 'aria-label': 'Warnings'});
    const values = kFacts.map(() => h('dd', {}));
    section.append(
        h('div', {class: 'body'}, h('div', {class: 'lens', 'aria-hidden': 'true'}, h('i')), screen,
            h('span', {class: 'lamp', 'aria-hidden': 'true'})),
        said, warnings,
        h('dl', {class: 'facts'}, kFacts.map(([name], index) => h('div', {}, h('dt', {}, name), values[index]))));

    let wasRecording = null;
    desk.on('state', ({camera}) => {
        section.classList.toggle('gone', camera === null);
        const isRecording = camera?.capturing ?? false;
        const isAsleep = camera?.suspended ?? false;
        section.classList.toggle('recording', isRecording);
        section.classList.toggle('asleep', isAsleep);
        if (camera === null) {
            setText(mode, '');
            setText(time, 'No camera');
            return;
        }
        const level = desk.status(status.battery) ?? 0;
        setText(mode, modes[desk.status(status.mode)] ?? `Mode ${desk.status(status.mode)}`);
        setText(room, roomText(desk));
        setText(time, isAsleep ? 'Asleep' : isRecording ? clock(desk.status(status.secondsRecorded) ?? 0) : 'Ready');
        battery.show(level);
        charge.classList.toggle('low', level < kLowBattery);
        setText(percent, `${level}%${desk.status(status.externalPower) ? ' charging' : ''}`);
        setAttribute(charge, 'title', 'Battery');
        setText(card, cardText(desk));
        card.classList.toggle('bad', desk.status(status.card) !== 0);
        const shown = kWarnings.filter(([id]) => desk.status(id)).map(([, text]) => text).join('\n');
        if (warnings.dataset.shown !== shown) {
            warnings.dataset.shown = shown;
            warnings.replaceChildren(...shown.split('\n').filter(Boolean).map((text) => h('li', {}, text)));
        }
        kFacts.forEach(([, value], index) => setText(values[index], value(desk) ?? '–'));
        if (wasRecording !== isRecording) {
            setText(said, isRecording ? 'Recording' : wasRecording === null ? 'Not recording' : 'Recording stopped');
            document.title = isRecording ? '● Recording – the camera on the desk' : 'The camera on the desk';
            wasRecording = isRecording;
        }
    });
}
