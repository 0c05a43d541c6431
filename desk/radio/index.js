// node desk/radio --hci PLACE [--desk URL] [--name NAME] [--type TYPE] - the camera on the desk as a Bluetooth LE
// peripheral, for phones and other centrals. docs/radio.md says how to use it.

import { End, end, ending, unlessEnding } from './ending.js';

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
    throw new End(WRONG_USE, error.message);
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
    throw new End(WRONG_USE, `${broken[1]} (see --help)`);
  }
}

async function reach(what, promise) {
  try {
    return await unlessEnding(promise);
  } catch (error) {
    throw error instanceof End ? error : new End(UNREACHABLE, `${what}: ${error.message || error.code}`);
  }
}

function checkType(protocol, type) {
  const names = protocol.deviceTypes.map(({ name }) => name);
  if (!names.includes(type)) {
    throw new End(WRONG_USE, `no device type "${type}"; there are ${names.join(', ')}`);
  }
}

async function run(options) {
  const desk = new Desk(options.desk);
  const protocol = await reach(`no desk at ${options.desk}`, desk.ask('GET', '/protocol.json'));
  checkType(protocol, options.type);
  const uuids = JSON.parse(await readFile(new URL('../uuids.json', import.meta.url)));

  const noController = `no controller at ${options.hci}`;
  const channel = await reach(noController, openChannel(options.hci));
  channel.on('closed', (error) => error && end(UNREACHABLE, `the controller has gone: ${error.message}`));
  const flow = new HciFlow((packet) => channel.write(packet));
  const peripheral = new Peripheral(channel, flow, protocol.interfaces, uuids);
  try {
    log(`controller ${await reach(noController, peripheral.start())}`);
    const bridge = new Bridge({ desk, peripheral, flow, options, log });
    await reach(noController, bridge.run(ending)).finally(() => bridge.stop(END_PATIENCE));
  } finally {
    peripheral.stop();
    channel.close();
  }
}

async function main() {
  const options = parseOptions();
  if (options.help) {
    console.log(USAGE);
    return 0;
  }
  check(options);
  await run(options);
  throw ending.reason;
}

process.exitCode = await main().catch((error) => {
  if (error.message !== '') {
    console.error(`radio: ${error.message}`);
  }
  return error instanceof End ? error.status : FAILED;
});
setTimeout(() => process.exit(), 500).unref(); // what the controller has not taken by then
