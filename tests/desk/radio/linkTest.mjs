// linkTest.mjs BUILD - a phone on a Bluetooth link reaches the real daemon by way of radio and desk. To be run in a
// world of its own.

import assert from 'node:assert';
import { readFileSync } from 'node:fs';
import net from 'node:net';
import { after, before, test } from 'node:test';
import { gunzipSync } from 'node:zlib';

import { PacketSplitter, ACL_DATA, EVENT } from '../../../desk/radio/hciPackets.js';
import { CATALOGUE, CONTROLLER, Phone, World, until } from './world.mjs';

const LIMIT = { timeout: 60_000 };
const world = new World();
let phone;

before(async () => {
  await world.start();
  phone = await Phone.open();
}, LIMIT);
after(async () => {
  phone.noble.stop();
  await world.stop();
  setImmediate(() => process.exit());
}, LIMIT);

async function assertCatalogue() {
  await phone.write('command', '01 3b');
  const message = await phone.message('command');
  assert.equal(message.subarray(0, 2).toString('hex'), '3b00');
  assert.deepEqual(gunzipSync(message.subarray(2)), readFileSync(CATALOGUE));
}

const noDevice = () => until('no device', async () => (await world.state('connections')).length === 0);

async function assertOrderlyEnd(radio) {
  assert.equal(await radio.end('SIGINT'), 0, radio.output);
  await noDevice();
  assert.doesNotMatch(radio.output, /Error|Warning/);
}

test('a phone captures, fetches the catalogue, is pushed to, and may leave in the middle', LIMIT, async () => {
  const radio = await world.radio('unix:' + CONTROLLER);
  await phone.connect();
  assert.equal(phone.peripheral.advertisement.localName, 'on the desk');
  const device = async () => (await world.state('devices'))[0];
  assert.equal((await device()).address, phone.noble.address);

  await phone.write('command', '03 01 01 01');
  assert.equal((await phone.packet('command')).toString('hex'), '020100');
  await assertCatalogue();

  await phone.write('query', '02 53 46', true);
  await phone.message('query');
  await world.run('kzcamctl', 'battery', '41').ended;
  await until('the push', async () => (await phone.message('query')).toString('hex') === '9300460129');

  const { packetsOut } = await device();
  const tooLong = phone.write('command', '00'.repeat(21)); // the library does not hear of the refusal
  await phone.interfaces.query.notify.unsubscribeAsync();
  await until('a closed gate', async () => (await device()).gates['15'] === 0);
  assert.equal((await device()).packetsOut, packetsOut);

  await phone.write('command', '01 3b');
  await phone.packet('command');
  await phone.peripheral.disconnectAsync();
  await assert.rejects(tooLong);
  await noDevice();
  await phone.connect();
  await assertCatalogue();

  const { gone } = phone;
  await assertOrderlyEnd(radio);
  await gone;
  await assert.rejects(phone.find(1000), 'it advertises no more');
});

test('a phone whose device ends is disconnected, and may connect again', LIMIT, async () => {
  const radio = await world.radio('unix:' + CONTROLLER);
  await phone.connect();
  const [{ device }] = await world.state('devices');
  await fetch(`${world.url}/devices/${device}`, { method: 'DELETE' });
  await phone.gone;
  await radio.says(/is disconnected: the camera's side ended: deleted\n/);
  await phone.connect();
  await phone.write('command', '03 01 01 00');
  assert.equal((await phone.packet('command')).toString('hex'), '020100');
  await assertOrderlyEnd(radio);
});

// Forwards a controller, delays what it says of data packets that left, and counts those in flight.
function slowLink() {
  const link = { inFlight: 0, most: 0 };
  link.server = net.createServer((host) => {
    const controller = net.connect(CONTROLLER);
    const [fromHost, fromController] = [new PacketSplitter(), new PacketSplitter()];
    host.on('data', (bytes) => {
      for (const packet of fromHost.split(bytes)) {
        if (packet[0] === ACL_DATA) link.most = Math.max(link.most, ++link.inFlight);
        controller.write(packet);
      }
    });
    controller.on('data', (bytes) => {
      for (const packet of fromController.split(bytes)) {
        const isCompleted = packet[0] === EVENT && packet[1] === 0x13;
        setTimeout(() => ((link.inFlight -= isCompleted), host.write(packet)), isCompleted ? 30 : 0);
      }
    });
    host.on('close', () => controller.destroy());
    host.on('error', () => {});
  });
  return new Promise((resolve) => link.server.listen(0, '127.0.0.1', () => resolve(link)));
}

test('a slow link loses nothing, and gets no more than it takes', LIMIT, async () => {
  const link = await slowLink();
  const radio = await world.radio(`tcp:127.0.0.1:${link.server.address().port}`);
  await phone.connect();
  const catalogue = assertCatalogue();
  await until('half of the catalogue at the desk', async () => (await world.state('devices'))[0].packetsIn > 75);
  const { arrived } = phone;
  assert.ok(arrived < 50, `the link is not slow: ${arrived}`);
  await phone.write('query', '02 53 46');
  assert.ok(phone.arrived < arrived + 10, `its answer waited behind ${phone.arrived - arrived} packets`);
  await catalogue;
  assert.equal(link.most, 1, 'the controller has room for one packet');
  await assertOrderlyEnd(radio);
  link.server.close();
});

test('a serial line will do', LIMIT, async () => {
  const radio = await world.radio('serial:' + world.terminal);
  await phone.find(); // the virtual controllers take no data packets on theirs
  await assertOrderlyEnd(radio);
});

test('the desk may go and come back', LIMIT, async () => {
  const radio = await world.radio('unix:' + CONTROLLER);
  await phone.connect();
  await world.desk.end('SIGKILL');
  await phone.gone;
  await radio.says(/does not advertise: no desk/);
  await assert.rejects(phone.find(1000), 'it advertises no more');
  await world.startDesk(new URL(world.url).port);
  await phone.connect();
  await phone.write('command', '03 01 01 00');
  assert.equal((await phone.packet('command')).toString('hex'), '020100');

  // The controller goes.
  await world.controllers.end();
  assert.equal(await Promise.race([radio.ended, until('the end', () => radio.process.exitCode)]), 4, radio.output);
  await noDevice();
});

test('what cannot be reached is said', LIMIT, async () => {
  for (const [place, url, status] of [['elsewhere', world.url, 64], ['unix:/tmp/none', world.url, 4],
    ['tcp:127.0.0.1:1', world.url, 4], ['user:7', world.url, 4], ['unix:/tmp/none', 'http://127.0.0.1:1', 4]]) {
    const radio = world.run('node', 'desk/radio', '--hci', place, '--desk', url);
    assert.equal(await radio.ended, status, radio.output);
    assert.match(radio.output, /^radio: .*\n$/);
  }
});

test('a controller that hangs up or says nothing ends the start', LIMIT, async () => {
  let take;
  const controller = net.createServer((connection) => take(connection)).listen(0, '127.0.0.1');
  await until('the port', () => controller.address());
  const start = async (act) => {
    const taken = new Promise((resolve) => (take = resolve));
    const place = `tcp:127.0.0.1:${controller.address().port}`;
    const radio = world.run('node', 'desk/radio', '--hci', place, '--desk', world.url);
    const connection = (await taken).on('error', () => {});
    await act(connection, radio);
    return [await radio.ended, radio.output];
  };
  const [status, output] = await start((connection) => connection.destroy());
  assert.equal(status, 4, output);
  assert.match(output, /^radio: the controller has gone: .*\n$/);
  for (const signal of ['SIGINT', 'SIGTERM']) {
    const ended = await start(async (connection, radio) => {
      await new Promise((resolve) => connection.once('data', resolve));
      radio.process.kill(signal);
    });
    assert.deepEqual(ended, [0, '']);
  }
  controller.close();
});
