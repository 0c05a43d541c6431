// The GATT server: one service, and of each interface of the camera a characteristic to write and one that notifies.
//
// events: "connected" (handle, address), "disconnected" (handle),
//         "write" (handle, interface, packet, answer): answer(true or false) has to be called,
//         "gate" (handle, interface, notify): notify(packet) sends a notification; null when they were switched off

import { EventEmitter, once } from 'node:events';
import { setTimeout as sleep } from 'node:timers/promises';

import { driveChannel } from './hciDriver.js';
import withBindings from '@stoprocent/bleno/lib/resolve-bindings.js';

const LONGEST_PACKET = 20; // what an attribute of the smallest MTU holds
const PATIENCE = 10_000; // ms, for the controller

// The controller does not do what it is asked to.
export class ControllerError extends Error {}

export class Peripheral extends EventEmitter {
  #bleno;
  #uuids;

  constructor(channel, flow, interfaces, uuids) {
    super();
    this.#uuids = uuids;
    this.#bleno = withBindings('hci', { deviceId: 0, ...driveChannel(channel, flow) });
    const { PrimaryService } = this.#bleno;
    const characteristics = interfaces.flatMap((one) => [this.#writable(one), this.#notifying(one)]);
    this.#bleno.setServices([new PrimaryService({ uuid: uuids.service, characteristics })]);
    this.#bleno.on('accept', (address, handle) => this.emit('connected', handle, address));
    this.#bleno.on('disconnect', (_, handle) => this.emit('disconnected', handle));
  }

  // Sets the controller up, and returns its address. Throws a ControllerError, as advertise() does.
  async start() {
    const changed = once(this.#bleno, 'stateChange');
    // By now the library has a handler of SIGINT that ends the program, unless another one comes behind it.
    process.on('SIGINT', () => {});
    const [state] = await inTime(changed);
    if (state !== 'poweredOn') {
      throw new ControllerError(`the controller is ${state}`);
    }
    return this.#bleno.address;
  }

  advertise(name) {
    return inTime(this.#bleno.startAdvertisingAsync(name, [this.#uuids.service]));
  }

  // No central may connect, and those that are connected are disconnected.
  hide() {
    this.#bleno.stopAdvertising();
    this.#bleno.disconnect();
  }

  disconnect(handle) {
    this.#bleno.disconnect(handle);
  }

  stop() {
    this.#bleno.stop();
  }

  #writable(one) {
    const { Characteristic } = this.#bleno;
    return new Characteristic({
      uuid: this.#uuids[one.name].write,
      properties: ['write', 'writeWithoutResponse'],
      onWriteRequest: (handle, packet, offset, withoutResponse, callback) => {
        if (packet.length === 0 || packet.length > LONGEST_PACKET) {
          callback(Characteristic.RESULT_INVALID_ATTRIBUTE_LENGTH);
          return;
        }
        const answer = (ok) => callback(ok ? Characteristic.RESULT_SUCCESS : Characteristic.RESULT_UNLIKELY_ERROR);
        this.emit('write', handle, one, packet, answer);
      },
    });
  }

  #notifying(one) {
    const { Characteristic } = this.#bleno;
    return new Characteristic({
      uuid: this.#uuids[one.name].notify,
      properties: ['notify'],
      onSubscribe: (handle, _, notify) => this.emit('gate', handle, one, notify),
      onUnsubscribe: (handle) => this.emit('gate', handle, one, null),
    });
  }
}

async function inTime(promise) {
  const tooLate = sleep(PATIENCE, undefined, { ref: false }).then(() => {
    throw new ControllerError('the controller does not answer');
  });
  return Promise.race([promise, tooLate]).catch((error) => {
    throw error instanceof ControllerError ? error : new ControllerError(error.message);
  });
}
