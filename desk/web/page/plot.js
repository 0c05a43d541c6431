// A sensor's values over the last seconds, drawn on a canvas, with their numbers beside it.
import {h, keyed, labelled, setAttribute, setText} from './dom.js';
import {choose, chosen} from './place.js';
import {tried} from './problems.js';

const kSpan = 20_000;  // ms
const kHeight = 170;   // CSS pixels
const kAxes = ['x', 'y', 'z'];
const kMostLines = 6;

function colour(name) {
    return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

function rangeOf(samples) {
    const all = samples.flatMap(({values}) => values.slice(0, kMostLines));
    const low = Math.min(...all);
    const high = Math.max(...all);
    const margin = (high - low) * 0.08 || 1;
    return [low - margin, high + margin];
}

// A step of 1, 2 or 5 times a power of ten that cuts the range into a few parts.
function stepOf(range) {
    const power = 10 ** Math.floor(Math.log10(range / 3));
    return power * [1, 2, 5, 10].find((factor) => range / (power * factor) <= 4);
}

function shortNumber(value) {
    return Number.isInteger(value) ? String(value) : value.toPrecision(4);
}

function drawGrid(context, width, [low, high], y) {
    context.strokeStyle = colour('--line');
    context.fillStyle = colour('--quiet');
    context.font = '11px system-ui, sans-serif';
    context.lineWidth = 1;
    const step = stepOf(high - low);
    for (let value = Math.ceil(low / step) * step; value <= high; value += step) {
        const at = Math.round(y(value)) + 0.5;
        context.beginPath();
        context.moveTo(0, at);
        context.lineTo(width, at);
        context.stroke();
        context.fillText(shortNumber(Number(value.toPrecision(6))), 2, at - 3);
    }
}

function drawLines(context, samples, x, y) {
    const lines = Math.min(kMostLines, Math.max(...samples.map(({values}) => values.length)));
    for (let line = 0; line < lines; ++line) {
        context.strokeStyle = colour(`--plot-${line % 3 + 1}`);
        context.lineWidth = 1.75;
        context.lineJoin = 'round';
        context.beginPath();
        for (const {time, values} of samples.filter((sample) => line < sample.values.length)) {
            context.lineTo(x(time), y(values[line]));
        }
        context.stroke();
    }
}

function draw(canvas, samples, now) {
    const width = canvas.clientWidth;
    const scale = window.devicePixelRatio || 1;
    canvas.width = Math.round(width * scale);
    canvas.height = Math.round(kHeight * scale);
    const context = canvas.getContext('2d');
    context.scale(scale, scale);
    if (samples.length === 0) {
        return;
    }
    const [low, high] = rangeOf(samples);
    const x = (time) => width - (now - time) / kSpan * width;
    const y = (value) => kHeight - (value - low) / (high - low) * kHeight;
    drawGrid(context, width, [low, high], y);
    drawLines(context, samples, x, y);
}

export function showPlot(desk, section, samples, testSensor) {
    const pick = h('select', {name: 'sensor', onchange: () => choose('sensor', pick.value)});
    const picked = labelled('Values', pick);
    const canvas = h('canvas', {role: 'img', height: kHeight});
    const numbers = h('dl', {class: 'numbers'});
    const note = h('p', {class: 'note'});
    const play = h('button', {type: 'button', onclick: tried(() => (testSensor.isRunning ? testSensor.stop() : testSensor.start()))});
    section.append(h('div', {class: 'row'}, picked, play), canvas, numbers, note);

    // The one that the page's address names, or the first of the sensor that has sent last.
    function showChoice() {
        const keys = [...samples.keys].map(([key, {sensor, name}]) => [key, `${sensor}: ${name}`]);
        const signature = JSON.stringify(keys);
        if (pick.dataset.keys !== signature) {
            pick.dataset.keys = signature;
            pick.replaceChildren(...keys.map(([value, text]) => h('option', {value}, text)));
            const wanted = chosen('sensor');
            const timeOf = ([key]) => samples.keys.get(key).samples.at(-1).time;
            const latest = keys.reduce((best, key) => (!best || timeOf(key) > timeOf(best) ? key : best), null);
            const first = keys.find(([key]) => samples.keys.get(key).device === samples.keys.get(latest[0]).device);
            pick.value = samples.keys.has(wanted) ? wanted : first?.[0] ?? '';
        }
        picked.hidden = keys.length === 0;
    }

    function showNumbers(key, shown) {
        const values = shown.at(-1)?.values.slice(0, kMostLines) ?? [];
        const names = values.map((_, index) => (values.length === 1 ? key.name : kAxes[index] ?? `value ${index + 1}`));
        const items = keyed(numbers, names, (name) => h('div', {}, h('dt', {}, name), h('dd', {})));
        names.forEach((name, index) => setText(items.get(name).lastChild, shortNumber(values[index])));
        setAttribute(canvas, 'aria-label', values.length > 0 ?
            `${key.sensor} ${key.name}, the last ${kSpan / 1000} seconds` : 'No values');
    }

    function show() {
        showChoice();
        const now = Date.now();
        const key = samples.keys.get(pick.value);
        const shown = key?.samples.filter(({time}) => now - time < kSpan) ?? [];
        canvas.hidden = !key;
        setText(play, testSensor.isRunning ? 'Stop the test sensor' : 'Play a test sensor');
        setText(note, !key ? 'No sensor of the desk has sent samples.' : shown.length === 0 ? 'No samples in the last 20 seconds.' : '');
        showNumbers(key ?? {}, shown);
        if (key) {
            draw(canvas, shown, now);
        }
    }

    let last = 0;
    function frame(time) {
        if (time - last > 60) {
            last = time;
            show();
        }
        requestAnimationFrame(frame);
    }
    requestAnimationFrame(frame);
}
