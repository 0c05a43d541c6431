// What is kept of HCI's rules, without a controller.

import assert from 'node:assert';
import { test } from 'node:test';

import { HciFlow } from '../../../desk/radio/hciFlow.js';
import { PacketSplitter } from '../../../desk/radio/hciPackets.js';

const hex = (text) => Buffer.from(text.replaceAll(' ', ''), 'hex');

test('data packets wait for buffers, which completed packets and disconnections give back', async () => {
  const sent = [];
  const flow = new HciFlow((packet) => sent.push(packet.readUInt16LE(1)));
  const staying = new AbortController();
  const wish = (handle, { signal } = staying) => flow.whenRoom(() => flow.write(hex(`02 0${handle}20 0000`)), signal);
  const rows = [
    ['04 0e 07 01 0220 00 1b00 02', 2], // LE buffers: two
    ['04 13 05 01 0100 0100', 3],
    ['04 13 05 01 0700 0900', 3], // a connection that is not there
    ['04 05 04 00 0100 13', 5], // both of it
    ['04 13 09 02 0200 0100 0300 0100', 7],
  ];
  [1, 1, 1, 2, 3, 4, 4, 4].forEach((handle) => wish(handle));
  const leaving = new AbortController();
  const left = wish(5, leaving);
  leaving.abort();
  await assert.rejects(left);
  for (const [event, count] of rows) {
    flow.read(hex(event));
    assert.equal(sent.length, count, event);
  }
});

test('commands wait until the controller takes them', () => {
  const sent = [];
  const flow = new HciFlow((packet) => sent.push(packet));
  for (let i = 0; i < 4; ++i) flow.write(hex('01 030c 00'));
  for (const [event, count] of [['04 3e 01 00', 1], ['04 0e 04 00 030c 00', 1], ['04 0f 04 00 02 030c', 3]]) {
    flow.read(hex(event));
    assert.equal(sent.length, count, event);
  }
});

test('a stream is cut into packets wherever it is broken', () => {
  const packets = ['01 030c 00', '02 2a20 0300 010203', '03 2a00 01 ff', '04 0e 00', '05 2a00 0140 07'].map(hex);
  for (const size of [1, 2, 5, 100]) {
    const splitter = new PacketSplitter();
    const stream = Buffer.concat(packets);
    const found = [];
    for (let at = 0; at < stream.length; at += size) found.push(...splitter.split(stream.subarray(at, at + size)));
    assert.deepEqual(found, packets);
  }
  assert.throws(() => new PacketSplitter().split(hex('09 00')), /no HCI/);
});
