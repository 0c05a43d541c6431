// The JavaScript library on the real daemon, through the desk at $KZ_DESK. To be run by desk.py; with $KZ_SHALLOW the
// radio queue takes only a few packets.
import assert from 'node:assert/strict';
import {execFileSync} from 'node:child_process';
import {writeFileSync} from 'node:fs';
import {test} from 'node:test';

import {connect, DeskTransport, hex, WebBluetoothTransport} from '../../desk/web/kzble.js';

import {failure, library, protocol, read, until} from './kzbleHelp.mjs';

const kDesk = process.env.KZ_DESK;
const json = async (path, body) => {
    const headers = {'content-type': 'application/json'};
    return (await fetch(kDesk + path, body && {method: 'POST', headers, body: JSON.stringify(body)})).json();
};
const catalogue = await json('/catalogue.json');
const control = (...command) => json('/do', {command});

function phoneTest(name, run, {transport = () => new DeskTransport(kDesk), options = { catalogue }} = {}) {
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
const uuids = {
    service: 'the service',
    ...Object.fromEntries(
        protocol.interfaces.map(({name}) => [name, {write: name + ' write', notify: name + ' notify'}]))
};
function bluetoothDevice() {
    const desk = new DeskTransport(kDesk, {gates: false});
    const device = new EventTarget();
    let isBusy = false;
    const alone = async (work) => {
        assert.ok(!isBusy, 'a browser refuses a second operation');
        isBusy = true;
        await work().finally(() => {
            isBusy = false;
        });
    };
    const characteristics = new Map(protocol.interfaces.flatMap(({name, request, answer, gate}) => {
        const notify = Object.assign(new EventTarget(), {startNotifications: () => alone(() => desk.gate(gate, true))});
        desk.on('packet', ({stream, bytes, direction}) => {
            if (direction === 'notify' && stream === answer) {
                notify.value = new DataView(bytes.buffer);
                notify.dispatchEvent(new Event('characteristicvaluechanged'));
            }
        });
        const write = {
            properties: {write: true},
            writeValueWithResponse: (bytes) => alone(() => desk.write(request, bytes))
        };
        return [[uuids[name].write, write], [uuids[name].notify, notify]];
    }));
    desk.on('end', () => device.dispatchEvent(new Event('gattserverdisconnected')));
    const service = {getCharacteristic: async (uuid) => characteristics.get(uuid)};
    const server = {getPrimaryService: async (uuid) => (uuid === uuids.service ? service : null)};
    device.gatt = {connect: () => desk.open().then(() => server), disconnect: () => desk.close()};
    return device;
}

phoneTest('packets are cut as the desk cuts them', async ({link}) => {
    const packets = [];
    link.transport.on('packet', ({direction, bytes}) => direction === 'write' && packets.push(hex(bytes)));
    for (const size of [1, 19, 20, 37, 38, 400, 7599]) {
        const message = new Uint8Array(size).fill(0x46);
        packets.length = 0;
        const {packets: count} =
            await json(`/devices/${link.transport.device}/write`, {stream: 2, message: hex(message)});
        await until('the packets', () => packets.length === count);
        assert.deepEqual(packets, link.framing.cut(message).map(hex));
    }
    assert.throws(() => link.framing.cut(new Uint8Array(7600)), failure('invalid'));
});

for (const [way, transport] of [
         ['the desk', undefined], ['Bluetooth', () => new WebBluetoothTransport(bluetoothDevice(), uuids)]]) {
    phoneTest(`a phone sets and watches over ${way}`, async (camera) => {
        const seen = [];
        const stop = await camera.watch(
            ['encoding', 'VIDEO-resolution'], ({name, value, option}) => seen.push([name, option ?? value]));
        const initial = seen.length;
        await camera.set('video_resolution', '2.7K');
        await control('record', 'on');
        await control('setting', 'Video Resolution', '5K');
        await until('the changes', () => seen.length === initial + 3);
        assert.deepEqual(
            seen.slice(initial).sort(), [['Encoding', 1], ['Video Resolution', '2.7K'], ['Video Resolution', '5K']]);
        assert.deepEqual(
            (await camera.get('frame rate', 2)).map(({id, option}) => [id, option]), [[3, '60'], [2, '5K']]);
        assert.deepEqual(await camera.status('encoding'), [{id: 10, name: 'Encoding', value: 1}]);
        const others = [];
        await camera.watch({statuses: ['encoding']}, ({value}) => others.push(value));
        await stop();
        await control('record', 'off');
        await camera.set(2, 1);
        await until('what another one watches', () => others.join() === '1,0');
        assert.equal(seen.length, initial + 3);
        const options = (await camera.capabilities('frame rate'))[0].options.map(({name}) => name);
        assert.ok(options.includes('60') && !options.includes('240'), options);
        await assert.rejects(
            camera.set('frame rate', '240'), failure('refused', {result: {code: 2, name: 'invalid parameter'}}));
        await assert.rejects(camera.feature('cah-upload'), failure('refused', {command: 'cah-upload'}));
        await assert.rejects(camera.set('frame rate', '61'), failure('refused'));
        for (const rate of ['30', '60']) {  // names that are numbers, too
            await camera.set('frame rate', rate);
            await until('the frame rate', async () => (await camera.get('frame rate'))[0].option === rate);
        }
        await assert.rejects(camera.set('frames', 1), failure('invalid'));
        assert.equal((await camera.feature('turbo', {1: true})).result.name, 'RESULT_SUCCESS');
        const together = await Promise.all(
            ['camera-info', 'get-time', 'third-party-api-version', 'camera-info'].map((one) => camera.command(one)));
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
    assert.deepEqual(seen, [
        ['request', 'register-status', undefined], ['answer', 'register-status', 'success'],
        ['push', 'status-push', 'success']
    ]);
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
    const end = (work) => work.then(() => 'done', (error) => failure('disconnected')(error) && error.message);
    const waits = [camera.catalogue(), camera.command('get-time'), camera.get(), camera.raw('command', '51')].map(end);
    const packets = [];
    camera.on('packet', ({direction}) => direction === 'notify' && packets.push(direction));
    await until('the middle of the transfer', () => packets.length > 10);
    await control('radio', 'drop', '0', String(camera.link.transport.connection));
    waits.push(end(camera.command('get-time')), end(camera.set(2, 1)));
    assert.deepEqual(await Promise.all(waits), Array(waits.length).fill('the link has ended: disconnected'));
    await control('radio', 'slow', '0');
    await until('the end', () => ends.length > 0);
    assert.deepEqual(ends, ['disconnected']);
}, {options: {}});

test('the examples of docs/desk.md run', {timeout: 60_000}, async () => {
    const text = read('docs/desk.md');
    const [node, browser] = Array.from(text.matchAll(/```js\n([^]*?)```/g), ([, program]) => program);
    const run = (program) => {
        writeFileSync(
            '/tmp/example.mjs',
            program.replace(/'[^']*\/kzble.js'/, JSON.stringify(library)).replaceAll('http://127.0.0.1:8080', kDesk));
        return execFileSync(process.execPath, ['/tmp/example.mjs'], {encoding: 'utf8', timeout: 30_000});
    };
    await control('setting', 'Video Resolution', '4K');
    const [, printed] = text.match(/It prints\n\n```\n([^]*?)```/);
    assert.deepEqual(run(node).split('\n').sort(), printed.split('\n').sort());  // a push may come before an answer
    await control('record', 'off');
    const page = `const elements = {}, real = fetch;
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
