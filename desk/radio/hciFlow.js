// Flow control of HCI: how many commands and data packets the controller has room for.
//
// The GATT library keeps what the controller has no room for in a queue without a bound. Whoever has much to send
// therefore asks here first, with whenRoom().

import { ACL_DATA, COMMAND, EVENT } from './hciPackets.js';

const DISCONNECTION_COMPLETE = 0x05;
const COMMAND_COMPLETE = 0x0e;
const COMMAND_STATUS = 0x0f;
const COMPLETED_PACKETS = 0x13;

const READ_BUFFER_SIZE = 0x1005;
const LE_READ_BUFFER_SIZE = 0x2002;

export class HciFlow {
  #send;
  #commands = []; // that wait
  #commandRoom = 1;
  #dataRoom = 1; // packets, of all connections, until the controller says what it has
  #inFlight = new Map(); // by connection handle
  #waiting = []; // senders

  // `send` gets each packet when the controller has room for it.
  constructor(send) {
    this.#send = send;
  }

  // Data packets go out at once: the library counts them itself.
  write(packet) {
    if (packet[0] === COMMAND) {
      this.#commands.push(packet);
      this.#sendCommands();
      return;
    }
    if (packet[0] === ACL_DATA) {
      const handle = packet.readUInt16LE(1) & 0x0fff;
      this.#inFlight.set(handle, (this.#inFlight.get(handle) ?? 0) + 1);
    }
    this.#send(packet);
  }

  // Calls `sender`, which has to write one data packet at once, in its turn. The promise is settled then; it is
  // rejected, and `sender` not called, when the signal is aborted before.
  whenRoom(sender, signal) {
    return new Promise((resolve, reject) => {
      if (signal.aborted) {
        reject(signal.reason);
        return;
      }
      const entry = () => {
        signal.removeEventListener('abort', forget);
        sender();
        resolve();
      };
      const forget = () => {
        this.#waiting = this.#waiting.filter((other) => other !== entry);
        reject(signal.reason);
      };
      signal.addEventListener('abort', forget, { once: true });
      this.#waiting.push(entry);
      this.#callSenders();
    });
  }

  // To be given every packet of the controller, after the library has seen it.
  read(packet) {
    if (packet[0] !== EVENT) {
      return;
    }
    const parameters = packet.subarray(3);
    switch (packet[1]) {
      case COMMAND_COMPLETE:
        this.#readBufferSize(parameters);
        this.#commandRoom = parameters[0];
        this.#sendCommands();
        break;
      case COMMAND_STATUS:
        this.#commandRoom = parameters[1];
        this.#sendCommands();
        break;
      case COMPLETED_PACKETS:
        this.#readCompleted(parameters);
        break;
      case DISCONNECTION_COMPLETE: // what was in flight has been thrown away
        this.#inFlight.delete(parameters.readUInt16LE(1));
        break;
    }
    this.#callSenders();
  }

  #readBufferSize(parameters) {
    const rows = { [LE_READ_BUFFER_SIZE]: { at: 6, size: 1 }, [READ_BUFFER_SIZE]: { at: 7, size: 2 } };
    const row = rows[parameters.readUInt16LE(1)];
    if (row !== undefined && parameters.length >= row.at + row.size) {
      // 0 of the LE command means that LE shares the buffers that the other command reads.
      this.#dataRoom = parameters.readUIntLE(row.at, row.size) || this.#dataRoom;
    }
  }

  #readCompleted(parameters) {
    for (let i = 0; i < parameters[0]; ++i) {
      const handle = parameters.readUInt16LE(1 + 4 * i);
      const left = (this.#inFlight.get(handle) ?? 0) - parameters.readUInt16LE(3 + 4 * i);
      if (this.#inFlight.has(handle)) {
        this.#inFlight.set(handle, Math.max(0, left));
      }
    }
  }

  #sendCommands() {
    while (this.#commandRoom > 0 && this.#commands.length > 0) {
      --this.#commandRoom;
      this.#send(this.#commands.shift());
    }
  }

  #hasRoom() {
    return [...this.#inFlight.values()].reduce((sum, count) => sum + count, 0) < this.#dataRoom;
  }

  #callSenders() {
    while (this.#waiting.length > 0 && this.#hasRoom()) {
      this.#waiting.shift()();
    }
  }
}
