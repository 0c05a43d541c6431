// node desk/radio --hci PLACE [--desk URL] [--name NAME] [--type TYPE] - the camera on the desk as a Bluetooth LE
// peripheral, for phones and other centrals. docs/radio.md says how to use it.

import { readFile } from 'node:fs/promises';
import { parseArgs } from 'node:util';

import { Bridge } from './bridge.js';
import { Desk } from './deskClient.js';
import { isPlace, openChannel } from './hciChannel.js';
import { HciFlow } from './hciFlow.js';
import { Peripheral } from './peripheral.js';

const FAILED = 1;
const UNREACHABLE = 4;
const WRONG_USE = 64;
const END_PATIENCE = 1500; // ms, for disconnecting in order

const USAGE = `usage: node desk/radio --hci PLACE [--desk URL] [--name NAME] [--type TYPE]

  --hci PLACE   where the Bluetooth controller is:
                  user:NUMBER           a local adapter (user:0 is hci0), which has to be down
                  unix:PATH             a socket
                  tcp:HOST:PORT         a connection
                  serial:DEVICE[:BAUD]  a serial line, 115200 baud by default
  --desk URL    default: http://127.0.0.1:8080
  --name NAME   what it is called, 1 to 29 characters of ASCII; default: camera
  --type TYPE   what a central is to the camera: a name of deviceTypes in protocol.json; default: phone

Ends with 0 on SIGINT or SIGTERM, with 4 when desk or controller cannot be reached, with 64 when it is called wrongly
and with 1 otherwise.`;

class Failure extends Error {
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

const log = (line) => console.log(`radio: ${line}`);

function parseOptions() {
  const text = (value) => ({ type: 'string', default: value });
  try {
    const { values } = parseArgs({
      options: {
        hci: { type: 'string' },
        desk: text('http://127.0.0.1:8080'),
        name: text('camera'),
        type: text('phone'),
        help: { type: 'boolean' },
      },
    });
    return values;
  } catch (error) {
    throw new Failure(WRONG_USE, error.message);
  }
}

function check({ hci, desk, name }) {
  const rules = [
    [hci !== undefined, '--hci says where the controller is'],
    [hci === undefined || isPlace(hci), `${hci} is no place of a controller`],
    [/^http:\/\/[^/]/.test(desk) && URL.canParse(desk), `${desk} is no http:// address`],
    [/^[\x20-\x7e]{1,29}$/.test(name), 'a name is 1 to 29 characters of ASCII'],
  ];
  const broken = rules.find(([holds]) => !holds);
  if (broken) {
    throw new Failure(WRONG_USE, `${broken[1]} (see --help)`);
  }
}

// What stops the radio is the reason of a signal: a Failure, of status 0 when somebody wanted it.
function whenStopped(signal) {
  return new Promise((_, reject) => {
    signal.throwIfAborted();
    signal.addEventListener('abort', () => reject(signal.reason), { once: true });
  });
}

async function reach(what, promise, signal) {
  try {
    return await Promise.race([promise, whenStopped(signal)]);
  } catch (error) {
    throw error instanceof Failure ? error : new Failure(UNREACHABLE, `${what}: ${error.message || error.code}`);
  }
}

// Our handlers have to be the last ones: that of the GATT library ends the program when none comes behind it.
function stopOnSignals(stopping) {
  const stop = () => stopping.abort(new Failure(0, 'stopped'));
  const listen = () => ['SIGINT', 'SIGTERM'].forEach((signal) => process.off(signal, stop).on(signal, stop));
  listen();
  return listen;
}

function checkType(protocol, type) {
  const names = protocol.deviceTypes.map(({ name }) => name);
  if (!names.includes(type)) {
    throw new Failure(WRONG_USE, `no device type "${type}"; there are ${names.join(', ')}`);
  }
}

async function run(options) {
  const stopping = new AbortController();
  const { signal } = stopping;
  const listenLast = stopOnSignals(stopping);
  const desk = new Desk(options.desk);
  const protocol = await reach(`no desk at ${options.desk}`, desk.ask('GET', '/protocol.json'), signal);
  checkType(protocol, options.type);
  const uuids = JSON.parse(await readFile(new URL('../uuids.json', import.meta.url)));

  const channel = await reach(`no controller at ${options.hci}`, openChannel(options.hci), signal);
  channel.on('closed', (error) => {
    stopping.abort(new Failure(UNREACHABLE, `the controller has gone: ${error?.message}`));
  });
  const flow = new HciFlow((packet) => channel.write(packet));
  const peripheral = new Peripheral(channel, flow, protocol.interfaces, uuids);
  const starting = peripheral.start();
  listenLast();
  const address = await reach(`no controller at ${options.hci}`, starting, signal);
  log(`controller ${address}`);

  const bridge = new Bridge({ desk, peripheral, flow, options, log });
  await bridge.run(signal);
  await bridge.stop(END_PATIENCE);
  peripheral.stop();
  channel.close();
  throw signal.reason;
}

async function main() {
  const options = parseOptions();
  if (options.help) {
    console.log(USAGE);
    return 0;
  }
  check(options);
  return run(options);
}

function report(error) {
  if (error.status !== 0) {
    console.error(`radio: ${error.message}`);
  }
  return error.status ?? FAILED;
}

process.exitCode = await main().catch(report);
setTimeout(() => process.exit(), 500).unref(); // what the controller has not taken by then
