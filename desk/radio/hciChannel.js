// Ways to a Bluetooth controller. A channel carries whole HCI packets, their type in front:
//
//   write(packet), close()      events: "packet" (Buffer), "closed" (an Error, or nothing when it was closed here)

import { EventEmitter, once } from 'node:events';
import net from 'node:net';

import hciSocket from '@stoprocent/bluetooth-hci-socket';
import { SerialPort } from 'serialport';

import { PacketSplitter } from './hciPackets.js';

const DEFAULT_BAUD = 115200;

class StreamChannel extends EventEmitter {
  #stream;
  #isClosing = false;
  #error = null;

  constructor(stream) {
    super();
    this.#stream = stream;
    const splitter = new PacketSplitter();
    stream.on('data', (bytes) => {
      try {
        splitter.split(bytes).forEach((packet) => this.emit('packet', packet));
      } catch (error) {
        stream.destroy(error);
      }
    });
    stream.on('error', (error) => (this.#error = error));
    stream.on('close', () => this.#closed());
    stream.on('end', () => stream.destroy());
  }

  write(packet) {
    if (!this.#isClosing && !this.#stream.destroyed) {
      this.#stream.write(packet);
    }
  }

  // What was written before still leaves.
  close() {
    this.#isClosing = true;
    this.#stream.end(() => this.#stream.destroy());
  }

  #closed() {
    this.emit('closed', this.#isClosing ? undefined : this.#error ?? new Error('the connection was closed'));
  }
}

// A local adapter, which the kernel hands over as a whole.
class AdapterChannel extends EventEmitter {
  #socket;

  constructor(number) {
    super();
    const Socket = hciSocket.loadDriver('native');
    this.#socket = new Socket();
    let failure = null;
    const fail = (error) => (failure ??= error);
    this.#socket.on('error', fail);
    this.#socket.bindUser(number);
    if (failure === null) {
      this.#socket.start();
    }
    if (failure !== null) {
      throw failure;
    }
    this.#socket.off('error', fail);
    this.#socket.on('error', (error) => this.emit('closed', error));
    this.#socket.on('data', (packet) => this.emit('packet', packet));
  }

  write(packet) {
    this.#socket.write(packet);
  }

  close() {
    this.#socket.stop();
    this.emit('closed');
  }
}

async function connect(options) {
  const socket = net.connect(options);
  await once(socket, 'connect');
  socket.setNoDelay(true);
  return new StreamChannel(socket);
}

async function openSerial(path, baud = DEFAULT_BAUD) {
  const port = new SerialPort({ path, baudRate: Number(baud), rtscts: true, autoOpen: false });
  await new Promise((resolve, reject) => port.open((error) => (error ? reject(error) : resolve())));
  return new StreamChannel(port);
}

const KINDS = [
  { form: /^user:(\d{1,5})$/, open: async (number) => new AdapterChannel(Number(number)) },
  { form: /^unix:(.+)$/, open: (path) => connect({ path }) },
  { form: /^tcp:(.+):(\d{1,5})$/, open: (host, port) => connect({ host: host.replace(/^\[(.*)\]$/, '$1'), port }) },
  { form: /^serial:(.+?)(?::(\d+))?$/, open: openSerial },
];

export const isPlace = (place) => KINDS.some(({ form }) => form.test(place));

// Opens the channel to `place`, for which isPlace() holds.
export function openChannel(place) {
  const { form, open } = KINDS.find((kind) => kind.form.test(place));
  return open(...form.exec(place).slice(1));
}
