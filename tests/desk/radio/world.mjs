// Camera, daemon, desk, virtual controllers and the radio, each a process of its own; and a phone on a link. To be used
// in a world of its own. Everything is waited for with a deadline.

import { execFileSync, spawn } from 'node:child_process';
import { EventEmitter, once } from 'node:events';
import { existsSync } from 'node:fs';
import { createRequire } from 'node:module';
import { setTimeout as sleep } from 'node:timers/promises';
import { fileURLToPath } from 'node:url';

import { openChannel } from '../../../desk/radio/hciChannel.js';
import { driveChannel } from '../../../desk/radio/hciDriver.js';
import { HciFlow } from '../../../desk/radio/hciFlow.js';

const PROJECT = fileURLToPath(new URL('../../..', import.meta.url));
const [BUILD] = process.argv.slice(2);
const PATIENCE = 20_000;
const require = createRequire(PROJECT + 'desk/');
const noble = require('@stoprocent/noble/lib/resolve-bindings.js');
const uuids = require('./uuids.json');

export const CONTROLLER = '/tmp/bt-server-le';
export const CATALOGUE = '/usr/local/zorvik/etc/58/settings.json';
process.env.KZ_CATALOGUE = CATALOGUE;
for (const room of ['client', 'simulator', 'kzBleSdkD/src', 'desk']) {
  process.env.PATH = `${BUILD}/${room}:${process.env.PATH}`;
}

export async function until(what, condition) {
  const deadline = Date.now() + PATIENCE;
  for (let found; ; await sleep(20)) {
    if ((found = await condition())) return found;
    if (Date.now() > deadline) throw new Error(`waited in vain for ${what}`);
  }
}

export class Program extends EventEmitter {
  constructor(command, args, env = {}) {
    super();
    this.output = '';
    this.process = spawn(command, args, { stdio: ['ignore', 'pipe', 'pipe'], env: { ...process.env, ...env } });
    for (const stream of [this.process.stdout, this.process.stderr]) stream.on('data', (text) => (this.output += text));
    this.ended = once(this.process, 'exit').then(([code, signal]) => code ?? signal);
  }

  says(pattern) {
    return until(`${this.process.spawnfile} to say ${pattern}: ${this.output}`, () => pattern.exec(this.output));
  }

  end(signal = 'SIGTERM') {
    this.process.kill(signal);
    return Promise.race([this.ended, sleep(PATIENCE, 'it does not end', { ref: false })]);
  }
}

export class World {
  #programs = [];

  async start() {
    try {
      await this.#startPrograms();
    } catch (error) {
      this.#programs.forEach(({ process, output }) => console.log(process.spawnargs.join(' '), '\n', output));
      throw error;
    }
  }

  async #startPrograms() {
    if (!existsSync(CATALOGUE)) execFileSync(PROJECT + 'scripts/camera-files');
    this.run('kzCameraSim', '--metadata-file', '/tmp/metadata.kzmf');
    await until('the camera', () => existsSync('/tmp/kzcamera/radio'));
    this.run('kzBleSdkD');
    await until('the daemon', () => this.run('kzble', '--timeout', '500', 'info').ended.then((code) => code === 0));
    const standIn = { LD_PRELOAD: `${BUILD}/tests/desk/radio/libcryptoStandIn.so` };
    this.controllers = new Program('stdbuf', ['-oL', 'btvirt', '-s', '-S'], standIn);
    this.#programs.push(this.controllers);
    await until('the controllers', () => existsSync(CONTROLLER));
    [, this.terminal] = await this.controllers.says(/Pseudo terminal at (\S+)/);
    await this.startDesk(0);
  }

  async startDesk(port) {
    this.desk = this.run('kzdesk', '--listen', String(port));
    [, this.url] = await this.desk.says(/(http:\S+)/);
  }

  run(command, ...args) {
    const program = new Program(command, args);
    this.#programs.push(program);
    return program;
  }

  async radio(place) {
    const radio = this.run('node', PROJECT + 'desk/radio', '--hci', place, '--desk', this.url, '--name', 'on the desk');
    await radio.says(/advertises\n/);
    return radio;
  }

  // A member of the desk's state, as it is now.
  async state(member) {
    return (await (await fetch(this.url + '/state')).json())[member];
  }

  stop() {
    return Promise.all(this.#programs.map((program) => program.end()));
  }
}

// A central. Its notifications are kept by interface.
export class Phone {
  static async open() {
    const phone = new Phone();
    const channel = await openChannel('unix:' + CONTROLLER);
    phone.noble = noble('hci', driveChannel(channel, new HciFlow((packet) => channel.write(packet))));
    await phone.noble.waitForPoweredOnAsync(PATIENCE);
    return phone;
  }

  // The peripheral that has our service, once it is seen within the time.
  async find(patience = PATIENCE) {
    const seen = once(this.noble, 'discover', { signal: AbortSignal.timeout(patience) });
    await this.noble.startScanningAsync([uuids.service.replaceAll('-', '')], false);
    try {
      return (await seen)[0];
    } finally {
      await this.noble.stopScanningAsync();
    }
  }

  async connect() {
    this.peripheral = await this.find();
    await this.peripheral.connectAsync();
    this.gone = once(this.peripheral, 'disconnect');
    const { services, characteristics } = await this.peripheral.discoverAllServicesAndCharacteristicsAsync();
    this.services = services.map(({ uuid }) => uuid);
    this.interfaces = {};
    this.arrived = 0;
    for (const name of ['command', 'settings', 'query', 'sensor']) {
      const find = (what) => characteristics.find(({ uuid }) => uuid === uuids[name][what].replaceAll('-', ''));
      const packets = [];
      this.interfaces[name] = { write: find('write'), notify: find('notify'), packets };
      find('notify').on('data', (packet) => {
        ++this.arrived;
        packets.push(packet);
      });
      await find('notify').subscribeAsync();
    }
  }

  write(name, hex, withoutResponse = false) {
    return this.interfaces[name].write.writeAsync(Buffer.from(hex.replaceAll(' ', ''), 'hex'), withoutResponse);
  }

  // The next packet of the interface.
  async packet(name) {
    const { packets } = this.interfaces[name];
    await until(`a packet of ${name}`, () => packets.length > 0);
    return packets.shift();
  }

  // The message that begins with the next packet; throws when one of its packets is missing.
  async message(name) {
    let packet = await this.packet(name);
    const form = packet[0] >> 5;
    const size = [() => packet[0], () => packet.readUInt16BE(0) & 0x1fff, () => packet.readUInt16BE(1)][form]();
    const header = form + 1;
    let message = packet.subarray(header);
    for (let count = 0; message.length < size; ++count) {
      packet = await this.packet(name);
      if (packet[0] !== (0x80 | (count & 0x0f))) throw new Error(`packet ${count} begins with ${packet[0]}`);
      message = Buffer.concat([message, packet.subarray(1)]);
    }
    return message;
  }
}
