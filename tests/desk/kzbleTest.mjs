// The JavaScript library on the protocol's examples and, through the desk at $KZ_DESK, on the real daemon. To be run by
// desk.py; with $KZ_SHALLOW the radio queue takes only a few packets.
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {readFileSync, writeFileSync} from 'node:fs';
import http from 'node:http';
import {test} from 'node:test';

import {CameraError, Decoder, DeskTransport, Framing, Protocol, WebBluetoothTransport, bytesOf, connect, hex} from '../../desk/web/kzble.js';
import {requestBytes} from '../../desk/web/kzble/values.js';

const kDesk = process.env.KZ_DESK;
const kProject = new URL('../..', import.meta.url);
const json = async (path, body) => {
    const headers = {'content-type': 'application/json'};
    return (await fetch(kDesk + path, body && {method: 'POST', headers, body: JSON.stringify(body)})).json();
};
const protocol = new Protocol(await json('/protocol.json'));
const catalogue = await json('/catalogue.json');
const control = (...command) => json('/do', {command});
const failure = (code, members = {}) => (error) => {
    assert.ok(error instanceof CameraError, error);
    assert.deepEqual({code: error.code, ...Object.fromEntries(Object.keys(members).map((key) => [key, error[key]]))}, {code, ...members});
    return true;
};

async function until(what, condition) {
    for (const end = Date.now() + 20_000; !condition(); await new Promise((resolve) => { setTimeout(resolve, 5); })) {
        assert.ok(Date.now() < end, `waited in vain for ${what}`);
    }
}

function phoneTest(name, run, {transport = () => new DeskTransport(kDesk), options = {catalogue}} = {}) {
    test(name, {timeout: 60_000}, async () => {
        const camera = await connect(transport(), protocol, options);
        try {
            await run(camera);
        } finally {
            await camera.close();
        }
    });
}

// A device as a browser shows it, which in truth is a phone at the desk.
const uuids = {service: 'the service', ...Object.fromEntries(
    protocol.interfaces.map(({name}) => [name, {write: name + ' write', notify: name + ' notify'}]))};
function bluetoothDevice() {
    const desk = new DeskTransport(kDesk, {gates: false});
    const device = new EventTarget();
    let isBusy = false;
    const alone = async (work) => {
        assert.ok(!isBusy, 'a browser refuses a second operation');
        isBusy = true;
        await work().finally(() => { isBusy = false; });
    };
    const characteristics = new Map(protocol.interfaces.flatMap(({name, request, answer, gate}) => {
        const notify = Object.assign(new EventTarget(), {startNotifications: () => alone(() => desk.gate(gate, true))});
        desk.on('packet', ({stream, bytes, direction}) => {
            if (direction === 'notify' && stream === answer) {
                notify.value = new DataView(bytes.buffer);
                notify.dispatchEvent(new Event('characteristicvaluechanged'));
            }
        });
        const write = {properties: {write: true}, writeValueWithResponse: (bytes) => alone(() => desk.write(request, bytes))};
        return [[uuids[name].write, write], [uuids[name].notify, notify]];
    }));
    desk.on('end', () => device.dispatchEvent(new Event('gattserverdisconnected')));
    const service = {getCharacteristic: async (uuid) => characteristics.get(uuid)};
    const server = {getPrimaryService: async (uuid) => (uuid === uuids.service ? service : null)};
    device.gatt = {connect: () => desk.open().then(() => server), disconnect: () => desk.close()};
    return device;
}

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

// ------------------------------------------------------------ without a camera

const expand = (text) => bytesOf(text.split(' ').map((word) => word.split('*')).map(([byte, n = 1]) => byte.repeat(n)).join(''));

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
    for (const [text, from, stream] of [...[step.answer ?? []].flat().map((one) => [one, 'answer', answer]),
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
    assert.deepEqual(decoder.decode(2, '0f 0a 07 e8 02 1d 17 3b 3a fd 30 01', 'write').values, {time: {
        year: 2024, month: 2, day: 29, hour: 23, minute: 59, second: 58, zone: -720, 'daylight saving': 'on'}});
    const write = (name, values) => hex(requestBytes(protocol.named(name), values));
    assert.equal(write('button', {press: {button: 2, state: 1}}), '1b 02 02 01');
    assert.equal(write('Register_Key', ['HRTE', 0, 2, 0x53, 2, 1, {sticky: 1}]), '03 48 52 54 45 00 02 53 02 01 02');
    assert.equal(write('shutter', 'on'), write('shutter', {State: 1}));
    for (const wrong of [{}, {state: 256}, {state: 'maybe'}, {other: 1}]) {
        assert.throws(() => write('shutter', wrong), failure('invalid'), JSON.stringify(wrong));
    }
    const assembler = new Framing(protocol).assembler('client');
    assert.deepEqual(['20 15' + '01'.repeat(18), '01 51', '81 02', '45', '40 00 01 51'].map((packet) => assembler.add(bytesOf(packet))),
        [null, bytesOf('51'), null, null, null]);
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
    const requests = [() => camera.command('camera-info'), () => camera.command('get-time'), () => camera.get(), () => camera.status(29),
        () => camera.capabilities(5), () => camera.set(5, 1), () => camera.feature('ota-status'), () => camera.feature('turbo', {1: true})];
    transport.written = (stream, bytes) => {
        const {answer} = protocol.interfaceOf(stream);
        const head = bytes[1] === 0xf5 || bytes[1] === 0xf1 ? [bytes[1], bytes[2] | 0x80] : [bytes[1], random(3)];
        for (const message of [noise(random(40)), Uint8Array.from([...head, ...noise(random(60))].slice(0, 1 + random(60)))]) {
            framing.cut(message, 'camera').forEach((packet) => transport.emit('packet', {stream: answer, bytes: packet}));
        }
    };
    const ends = {};
    for (let count = 0; count < 800; ++count) {
        await requests[count % requests.length]().then(() => { ends.done = true; }, (error) => {
            assert.ok(error instanceof CameraError, error.stack);
            ends[error.code] = true;
        });
    }
    assert.deepEqual(Object.keys(ends).sort(), ['done', 'malformed', 'refused', 'timed-out']);
    const after = process.memoryUsage();
    assert.ok(after.heapUsed + after.arrayBuffers - before.heapUsed - before.arrayBuffers < 64 << 20, 'memory has grown');
    assert.equal(reports.mock.callCount(), 0);
});

test('an event stream that breaks is taken up again, and a flood ends it', async () => {
    const event = (id, bytes) => `id: ${id}\nevent: packet\ndata: {"direction":"notify","stream":4,"bytes":"${bytes}"}\n\n`;
    const asked = [];
    const answers = [event(7, '02 01 00'), ': silence\n\nevent: packet\ndata: no JSON\n\n' + event(9, '02 zz') + event(9, '02 02 00'),
        'event: flood'.padEnd(3 << 20)];
    const server = http.createServer((request, response) => {
        asked.push(request.url);
        response.end(answers[asked.length - 1] ?? '');
    });
    await new Promise((resolve) => { server.listen(0, '127.0.0.1', resolve); });
    const transport = new DeskTransport(`http://127.0.0.1:${server.address().port}`, {device: 3});
    const seen = [];
    transport.on('packet', ({bytes}) => seen.push(hex(bytes)));
    const end = new Promise((resolve) => { transport.on('end', resolve); });
    await transport.open();
    assert.match((await end).reason, /broke/);
    assert.deepEqual([seen, asked.slice(0, 3)],
        [['02 01 00', '02 02 00'], ['/devices/3/events', '/devices/3/events?from=7', '/devices/3/events?from=9']]);
    server.close();
});

// ------------------------------------------------------------ with the daemon

phoneTest('packets are cut as the desk cuts them', async ({link}) => {
    const packets = [];
    link.transport.on('packet', ({direction, bytes}) => direction === 'write' && packets.push(hex(bytes)));
    for (const size of [1, 19, 20, 37, 38, 400, 7599]) {
        const message = new Uint8Array(size).fill(0x46);
        packets.length = 0;
        const {packets: count} = await json(`/devices/${link.transport.device}/write`, {stream: 2, message: hex(message)});
        await until('the packets', () => packets.length === count);
        assert.deepEqual(packets, link.framing.cut(message).map(hex));
    }
    assert.throws(() => link.framing.cut(new Uint8Array(7600)), failure('invalid'));
});

for (const [way, transport] of [['the desk', undefined], ['Bluetooth', () => new WebBluetoothTransport(bluetoothDevice(), uuids)]]) {
    phoneTest(`a phone sets and watches over ${way}`, async (camera) => {
        const seen = [];
        const stop = await camera.watch(['encoding', 'VIDEO-resolution'], ({name, value, option}) => seen.push([name, option ?? value]));
        const initial = seen.length;
        await camera.set('video_resolution', '2.7K');
        await control('record', 'on');
        await control('setting', 'Video Resolution', '5K');
        await until('the changes', () => seen.length === initial + 3);
        assert.deepEqual(seen.slice(initial).sort(), [['Encoding', 1], ['Video Resolution', '2.7K'], ['Video Resolution', '5K']]);
        assert.deepEqual((await camera.get('frame rate', 2)).map(({id, option}) => [id, option]), [[3, '60'], [2, '5K']]);
        assert.deepEqual(await camera.status('encoding'), [{id: 10, name: 'Encoding', value: 1}]);
        await stop();
        await control('record', 'off');
        await camera.set(2, 1);
        assert.equal(seen.length, initial + 3);
        const options = (await camera.capabilities('frame rate'))[0].options.map(({name}) => name);
        assert.ok(options.includes('60') && !options.includes('240'), options);
        await assert.rejects(camera.set('frame rate', '240'), failure('refused', {result: {code: 2, name: 'invalid parameter'}}));
        await assert.rejects(camera.feature('cah-upload'), failure('refused', {command: 'cah-upload'}));
        await assert.rejects(camera.set('frame rate', '61'), failure('refused'));
        await assert.rejects(camera.set('frames', 1), failure('invalid'));
        assert.equal((await camera.feature('turbo', {1: true})).result.name, 'RESULT_SUCCESS');
        const together = await Promise.all(['camera-info', 'get-time', 'third-party-api-version', 'camera-info'].map((one) => camera.command(one)));
        assert.deepEqual([together[0].values.model, together[2].values], [58, {major: 2, minor: 0}]);
        assert.deepEqual(together[3], together[0]);
    }, {transport});
}

phoneTest('the catalogue comes over the link, also to two at once', async (camera) => {
    const other = await connect(new DeskTransport(kDesk), protocol);
    const [mine, same, others] = await Promise.all([camera.catalogue(), camera.catalogue(), other.catalogue()]);
    assert.equal(mine, same);
    assert.deepEqual([mine.json, others.json], [catalogue, catalogue]);
    await other.close();
}, {options: {}});

phoneTest('who looks at a device of somebody else sees both sides', async (camera) => {
    const look = await connect(new DeskTransport(kDesk, {device: camera.link.transport.device}), protocol, {catalogue});
    const seen = [];
    look.on('message', ({what, name, result}) => seen.push([what, name, result?.name]));
    await camera.watch('battery percent', () => {});
    await control('battery', '41');
    await until('the messages', () => seen.length >= 3);
    assert.deepEqual(seen, [['request', 'register-status', undefined], ['answer', 'register-status', 'success'], ['push', 'status-push', 'success']]);
    await assert.rejects(look.command('shutter', 'on'), failure('invalid'));
    await look.close();
    assert.ok(await camera.command('get-time'), 'the device is still there');
});

phoneTest('a deadline and a lost link end what waits', async (camera) => {
    const ends = [];
    camera.on('end', ({reason}) => ends.push(reason));
    await camera.link.transport.gate(5, false);
    await assert.rejects(camera.command('get-time', [], {timeout: 200}), failure('timed-out', {command: 'get-time'}));
    await camera.link.transport.gate(5, true);
    await camera.command('get-time');
    await control('radio', 'slow', '50');
    const end = (work) => work.then(() => 'done', (error) => failure('disconnected')(error) && 'disconnected');
    const waits = [camera.catalogue(), camera.command('get-time'), camera.get(), camera.raw('command', '51')].map(end);
    const packets = [];
    camera.on('packet', ({direction}) => direction === 'notify' && packets.push(direction));
    await until('the middle of the transfer', () => packets.length > 10);
    await control('radio', 'drop', '0', String(camera.link.transport.connection));
    waits.push(end(camera.command('get-time')), end(camera.set(2, 1)));
    assert.deepEqual(await Promise.all(waits), Array(waits.length).fill('disconnected'));
    await control('radio', 'slow', '0');
    await until('the end', () => ends.length > 0);
    assert.deepEqual(ends, ['disconnected']);
}, {options: {}});

test('the examples of docs/desk.md run', {timeout: 60_000}, async () => {
    const text = readFileSync(new URL('docs/desk.md', kProject), 'utf8');
    const library = JSON.stringify(new URL('desk/web/kzble.js', kProject).href);
    const [, node] = text.match(/```js\n([^]*?)```/);
    const [, browser] = text.match(/<script type="module">\n([^]*?)<\/script>/);
    const run = (program) => {
        writeFileSync('/tmp/example.mjs', program.replace(/'[^']*\/kzble.js'/, library).replaceAll('http://127.0.0.1:8080', kDesk));
        return execFileSync(process.execPath, ['/tmp/example.mjs'], {encoding: 'utf8', timeout: 30_000});
    };
    await control('setting', 'Video Resolution', '4K');
    const [, printed] = text.match(/It prints\n\n```\n([^]*?)```/);
    assert.deepEqual(run(node).split('\n').sort(), printed.split('\n').sort());  // a push may come before an answer
    await control('record', 'off');
    const page = `import http from 'node:http';
        const elements = {}, real = fetch;
        globalThis.document = {querySelector: (name) => elements[name] ??= {}};
        globalThis.fetch = (path, options) => real(new URL(path, '${kDesk}'), options);\n`;
    const click = `elements.button.onclick();
        for (; elements.output.value !== 'recording'; await new Promise((resolve) => { setTimeout(resolve, 20); }));
        await camera.close();\n`;
    run(page + browser + click);
    await control('record', 'off');
});

test('the desk serves every module of the library', async () => {
    const modules = ['/kzble.js'];
    for (const path of modules) {
        const answer = await fetch(kDesk + path);
        assert.deepEqual([answer.status, answer.headers.get('content-type')], [200, 'text/javascript'], path);
        for (const [, other] of (await answer.text()).matchAll(/ from '(\.[^']+)'/g)) {
            const {pathname} = new URL(other, kDesk + path);
            modules.includes(pathname) || modules.push(pathname);
        }
    }
    assert.ok(modules.length > 10, modules.join());
});

phoneTest('all values are read, also those of partial answers', async (camera) => {
    const partial = [];
    camera.on('message', ({what, result}) => what === 'answer' && result?.code === 1 && partial.push(result));
    const {settings, statuses} = await camera.catalogue();
    assert.equal((await camera.get()).length, settings.length);
    assert.equal((await camera.status()).length, statuses.length);
    const options = await camera.capabilities();
    assert.ok(partial.length > 4 || !process.env.KZ_SHALLOW, `${partial.length} partial answers`);
    for (const {id, options: known} of settings) {
        const [alone] = await camera.capabilities(id);
        assert.deepEqual(options.find((one) => one.id === id), alone);
        assert.ok(alone.options.length <= known.size);
    }
    const seen = new Set();
    await camera.watch(null, ({kind, id}) => seen.add(kind + id));
    assert.equal(seen.size, 2 * settings.length + statuses.length);
});
