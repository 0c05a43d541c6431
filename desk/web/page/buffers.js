// The display and LED buffers, as an accessory with a screen and lamps would show them. What the bytes mean is the
// camera's own business: text is shown as text, anything else as a raster of a cell a byte; a lamp is as bright as its byte.
import {h, setText} from './dom.js';
import {ask, write} from './desk.js';
import {bytesOf, printable} from './names.js';
import {tried} from './problems.js';

const kDisplay = 0x51;  // first byte of the message
const kLed = 0x53;
const kSensorRequest = 17;
const kColumns = 16;
const kAccessory = 'BIRCH';

function isText(bytes) {
    return bytes.length > 0 && bytes.every((byte) => byte === 0 || byte === 10 || (byte >= 32 && byte < 127));
}

function drawDisplay(bytes) {
    if (isText(bytes)) {
        return h('pre', {}, String.fromCharCode(...bytes.filter((byte) => byte !== 0)));
    }
    return h('div', {class: 'raster', role: 'img', 'aria-label': `${bytes.length} bytes: ${printable(bytes)}`},
        bytes.slice(0, kColumns * kColumns).map((byte) => {
            const cell = h('i', {});
            cell.style.opacity = (0.12 + 0.88 * byte / 255).toFixed(2);
            return cell;
        }));
}

function drawLeds(bytes) {
    return bytes.map((byte, index) => {
        const lamp = h('li', {title: `lamp ${index + 1}: ${byte}`}, h('span', {class: 'hidden'}, String(byte)));
        lamp.style.setProperty('--level', (byte / 255).toFixed(2));
        return lamp;
    });
}

// Connects an accessory that registers for both buffers.
async function connectAccessory() {
    const {device} = await ask('POST', 'devices', {type: kAccessory, gates: true});
    await write(device, kSensorRequest, '50 01');
    await write(device, kSensorRequest, '52 01');
}

export function showBuffers(desk, section) {
    const display = h('div', {class: 'display', tabindex: 0, role: 'group', 'aria-label': 'Display buffer'});
    const lamps = h('ul', {class: 'lamps', 'aria-label': 'LED buffer'});
    const from = h('p', {class: 'note'});
    const connect = h('button', {type: 'button', onclick: tried(connectAccessory)}, 'Connect an accessory');
    section.append(h('div', {class: 'buffers'}, display, lamps, h('div', {class: 'row'}, from, connect)));

    const clear = () => {
        display.replaceChildren();
        lamps.replaceChildren();
    };
    desk.on('reset', clear);
    desk.on('entry', (entry) => {
        if (entry.event !== 'message' || entry.stream !== 19 || entry.meaning?.what !== 'push') {
            return;
        }
        const [kind, ...bytes] = bytesOf(entry.bytes);
        if (kind === kDisplay) {
            display.replaceChildren(drawDisplay(bytes));
        } else if (kind === kLed) {
            lamps.replaceChildren(...drawLeds(bytes));
        }
    });
    desk.on('state', ({devices}) => {
        const receiver = devices.find(({interests}) => interests.display || interests.led);
        connect.hidden = receiver !== undefined;
        setText(from, receiver ? `Display and lamps of device ${receiver.device}` :
            'No device of the desk asks for the display and LED buffers.');
        if (!receiver) {
            clear();
        }
    });
}
