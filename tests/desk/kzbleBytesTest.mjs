// The JavaScript library without a camera: the protocol's examples, and what a hostile peer sends.
import assert from 'node:assert/strict';
import http from 'node:http';
import {test} from 'node:test';

import {bytesOf, CameraError, connect, Decoder, DeskTransport, Framing, hex} from '../../desk/web/kzble.js';
import {requestBytes} from '../../desk/web/kzble/values.js';

import {failure, protocol, read} from './kzbleHelp.mjs';

const catalogue = JSON.parse(read('simulator/data/58/settings.json'));

// Listeners and packets by hand; `written` gets what is written.
class HandTransport {
    opensGates = true;
    listeners = {packet: [], gate: [], lost: [], end: []};
    written = () => {};
    on(name, listener) { this.listeners[name].push(listener); }
    emit(name, event) { this.listeners[name].forEach((listener) => listener(event)); }
    async open() {}
    async write(stream, bytes) { this.written(stream, bytes); }
    async close() {}
}

const expand = (text) =>
    bytesOf(text.split(' ').map((word) => word.split('*')).map(([byte, n = 1]) => byte.repeat(n)).join(''));

test('the examples of the protocol are read and written as they stand', () => {
    const framing = new Framing(protocol);
    const on = {commands: 'command', settings: 'settings', queries: 'query', sensor: 'sensor', buffers: 'sensor'};
    let plain = 0;
    for (const section of ['commands', 'protobuf', 'settings', 'queries', 'sensor', 'pushes', 'buffers']) {
        for (const row of protocol.description[section]) {
            for (const step of (row.examples ?? []).flatMap((example) => example.steps ?? [example])) {
                const name = step.on ?? on[section] ?? protocol.features.get(row.feature) ?? 'query';
                plain += playExample(framing, protocol.interface(name), step);
            }
        }
    }
    assert.ok(plain > 60, `only ${plain} requests were written again`);
});

function playExample(framing, {name, request, answer}, step) {
    const decoder = new Decoder(protocol);
    const asked = typeof step.ask === 'string' && !step.malformed ? expand(step.ask) : null;
    const meaning = asked && decoder.decode(request, asked, 'write');
    for (const [text, from, stream] of
             [...[step.answer ?? []].flat().map((one) => [one, 'answer', answer]),
              ...[step.push ?? []].flat().map((one) => [one, 'push', 14])]) {
        const bytes = expand(text);
        const assembler = framing.assembler('camera');
        assert.deepEqual(framing.cut(bytes, 'camera').map((packet) => assembler.add(packet)).at(-1), bytes);
        // The camera's reply to preset-create is passed on as it is, and those of the examples are no messages.
        const got = decoder.decode(stream, bytes, 'notify');
        assert.ok(!got.problem || got.name === 'preset-create', `${text}: ${got.problem}`);
        if (asked && from === 'answer' && got.what === 'answer') {
            assert.equal(got.name, meaning.name, text);
        } else if (from === 'push') {
            assert.equal(got.what, 'push', text);
        }
    }
    const isDone = asked && [step.answer].flat()[0]?.startsWith(step.ask.slice(0, 2) + ' 00');
    const row = isDone && protocol.requestOf(name, asked);
    if (!row || !Array.isArray(row.row.params)) {
        return 0;
    }
    const again = requestBytes(row, meaning.values);
    assert.ok(hex(again) === hex(asked) || again.length < asked.length, `${step.ask} became ${hex(again)}`);
    return 1;
}

test('values have their names, and the packets of an example make its message', () => {
    const decoder = new Decoder(protocol);
    assert.deepEqual(
        decoder.decode(2, '0f 0a 07 e8 02 1d 17 3b 3a fd 30 01', 'write').values,
        {time: {year: 2024, month: 2, day: 29, hour: 23, minute: 59, second: 58, zone: -720, 'daylight saving': 'on'}});
    assert.equal(decoder.decode(7, '02 05 09 00 00 01 00', 'write').values.option, 256);
    const write = (name, values) => hex(requestBytes(protocol.named(name), values));
    assert.equal(write('button', {press: {button: 2, state: 1}}), '1b 02 02 01');
    assert.equal(write('Register_Key', ['HRTE', 0, 2, 0x53, 2, 1, {sticky: 1}]), '03 48 52 54 45 00 02 53 02 01 02');
    assert.equal(write('shutter', 'on'), write('shutter', {State: 1}));
    for (const wrong of [{}, {state: 256}, {state: 'maybe'}, {other: 1}]) {
        assert.throws(() => write('shutter', wrong), failure('invalid'), JSON.stringify(wrong));
    }
    const assembler = new Framing(protocol).assembler('client');
    const first = '20 15' +
        '01'.repeat(18);
    const packets = [first, '01 51', '80 02', first, '81 02 02 02', '80 02', '45', '40 00 01 51', first, '80 02 02 02'];
    assert.deepEqual(
        packets.map((packet) => hex(assembler.add(bytesOf(packet)) ?? '')),
        ['', '51', '', '', '', '', '', '', '', '01 '.repeat(18) + '02 02 02']);
});

test('an answer is told from what comes before and behind it', async () => {
    const transport = new HandTransport();
    const camera = await connect(transport, protocol, {catalogue});
    const framing = new Framing(protocol);
    let answers = [];
    transport.written = (stream) => answers.flatMap((text) => framing.cut(bytesOf(text), 'camera')).forEach((bytes) => {
        transport.emit('packet', {stream: protocol.interfaceOf(stream).answer, bytes});
    });
    answers = ['f5 f5 08 01', '92 00 02 01 01', '75 f6 08 02', 'f5 f6 08 03', 'f5 f6 08 04'];
    assert.deepEqual((await camera.feature('ota-status')).fields, [{field: 1, value: 3}]);
    answers = ['12 00 02 01 01', '92 00 02 01 09'];
    assert.equal((await camera.get(2))[0].value, 1);
    answers = ['00 02'];
    await assert.rejects(
        camera.get(2), failure('refused', {command: 'get-settings', result: protocol.result('query', 2)}));
    answers = ['00 02'];  // to the first of two packets
    const written = [];
    camera.on('packet', ({direction, bytes}) => direction === 'write' && written.push(bytes[0]));
    const two = [camera.get(...Array.from({length: 20}, (_, index) => index)), camera.get(2)];
    assert.deepEqual((await Promise.allSettled(two)).map(({status}) => status), ['rejected', 'rejected']);
    assert.deepEqual(written, [0x20, 0x80, 2]);
    const seen = [];
    answers = ['52 00 02 01 09', '92 00 02 01 01'];
    await camera.watch({settings: [2]}, ({value}) => seen.push(value));
    assert.deepEqual(seen, [1], 'the push is newer');
});

test('an answer may take longer than the deadline as long as more of it comes', async () => {
    const transport = new HandTransport();
    const camera = await connect(transport, protocol, {catalogue: null, timeout: 500});
    const packets = new Framing(protocol).cut(new Uint8Array(90).fill(0x51), 'camera');
    transport.written = () => packets.forEach((bytes, index) => {
        setTimeout(() => transport.emit('packet', {stream: 4, bytes}), 200 * index);
    });
    assert.equal((await camera.raw('command', '51')).length, 90);
    transport.written = () => transport.emit('packet', {stream: 4, bytes: packets[0]});
    await assert.rejects(camera.raw('command', '51'), failure('timed-out'));
});

test('a write that finds the device gone waits for the reason of the end', {timeout: 4000}, async () => {
    for (const reason of ['the daemon was started anew', null]) {
        const transport = new HandTransport();
        const camera = await connect(transport, protocol, {catalogue: null, timeout: 60_000});
        const waiting = camera.raw('query', '53');
        transport.written = () => {
            setTimeout(() => reason && transport.emit('end', {reason}), 50);
            throw new CameraError('disconnected', 'no such device');
        };
        const message = `the link has ended: ${reason ?? 'no such device'}`;
        await assert.rejects(camera.raw('command', '51'), failure('disconnected', {message}));
        await assert.rejects(waiting, failure('disconnected', {message}));
    }
});

test('hostile bytes neither throw nor pile up', {timeout: 60_000}, async (context) => {
    const reports = context.mock.method(console, 'error', () => {});
    const transport = new HandTransport();
    const camera = await connect(transport, protocol, {catalogue, timeout: 20});
    const framing = new Framing(protocol);
    let seed = 1;
    const random = (below) => (seed = (seed * 48271) % 2147483647) % below;
    const noise = (size) => Uint8Array.from({length: size}, () => (random(3) ? random(8) : random(256)));
    const before = process.memoryUsage();
    for (let count = 0; count < 100_000; ++count) {
        const packet = noise(random(24));
        packet[0] = random(4) ? [0x40, 0x80, 0x81, 0x3f, 0x05, 0x12][random(6)] : packet[0];
        transport.emit('packet', {stream: [4, 9, 14, 19, 27, random(256)][random(6)], bytes: packet});
    }
    const requests = [
        () => camera.command('camera-info'), () => camera.command('get-time'), () => camera.get(),
        () => camera.status(29), () => camera.capabilities(5), () => camera.set(5, 1),
        () => camera.feature('ota-status'), () => camera.feature('turbo', {1: true})
    ];
    transport.written = (stream, bytes) => {
        const {answer} = protocol.interfaceOf(stream);
        const head = bytes[1] === 0xf5 || bytes[1] === 0xf1 ? [bytes[1], bytes[2] | 0x80] : [bytes[1], random(3)];
        for (const message
                 of [noise(random(40)), Uint8Array.from([...head, ...noise(random(60))].slice(0, 1 + random(60)))]) {
            framing.cut(message, 'camera')
                .forEach((packet) => transport.emit('packet', {stream: answer, bytes: packet}));
        }
    };
    const ends = {};
    for (let count = 0; count < 800; ++count) {
        await requests[count % requests.length]().then(
            () => {
                ends.done = true;
            },
            (error) => {
                assert.ok(error instanceof CameraError, error.stack);
                ends[error.code] = true;
            });
    }
    assert.deepEqual(Object.keys(ends).sort(), ['done', 'malformed', 'refused', 'timed-out']);
    const after = process.memoryUsage();
    assert.ok(
        after.heapUsed + after.arrayBuffers - before.heapUsed - before.arrayBuffers < 64 << 20, 'memory has grown');
    assert.equal(reports.mock.callCount(), 0);
});

test('an event stream that breaks is taken up again, and a flood ends it', {timeout: 20_000}, async () => {
    const event = (id, bytes) =>
        `id: ${id}\nevent: packet\ndata: {"direction":"notify","stream":4,"bytes":"${bytes}"}\n\n`;
    const asked = [];
    const answers = [
        event(7, '02 01 00'),
        ': silence\n\nevent: packet\ndata: no JSON\n\n' + event(9, '02 zz') + event(9, '02 02 00'),
        'event: '.padEnd(3 << 20)
    ];
    const server = http.createServer((request, response) => {
        asked.push(request.url);
        response.write(answers[asked.length - 1] ?? '');
        asked.length === 3 || response.end();
    });
    await new Promise((resolve) => {
        server.listen(0, '127.0.0.1', resolve);
    });
    const transport = new DeskTransport(`http://127.0.0.1:${server.address().port}`, {device: 3});
    const seen = [];
    transport.on('packet', ({bytes}) => seen.push(hex(bytes)));
    const end = new Promise((resolve) => {
        transport.on('end', resolve);
    });
    await transport.open();
    assert.match((await end).reason, /broke/);
    assert.deepEqual(
        [seen, asked.slice(0, 3)],
        [['02 01 00', '02 02 00'], ['/devices/3/events', '/devices/3/events?from=7', '/devices/3/events?from=9']]);
    server.closeAllConnections();
    server.close();
});
