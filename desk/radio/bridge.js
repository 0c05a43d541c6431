// Carries what centrals do on the link to the desk. The peripheral advertises as long as the desk has a camera.

import { setTimeout as sleep } from 'node:timers/promises';

import { Central } from './central.js';
import { ControllerError } from './peripheral.js';

const RETRY = 500; // ms

export class Bridge {
  #desk;
  #peripheral;
  #flow;
  #options;
  #log;
  #centrals = new Map(); // by connection handle
  #ending = new Map(); // by address: a device has to end before its address may connect again
  #hiddenBecause; // null while it advertises

  // `options` are name and type; `log` gets lines for the user.
  constructor({ desk, peripheral, flow, options, log }) {
    this.#desk = desk;
    this.#peripheral = peripheral;
    this.#flow = flow;
    this.#options = options;
    this.#log = log;
    peripheral.on('connected', (handle, address) => this.#connected(handle, address));
    peripheral.on('disconnected', (handle) => this.#disconnected(handle));
    peripheral.on('gate', (handle, one, notify) => this.#centrals.get(handle)?.gate(one, notify));
    peripheral.on('write', (handle, one, packet, answer) => this.#centrals.get(handle)?.write(one, packet, answer));
  }

  // Follows the desk until the signal is aborted. Throws a ControllerError.
  async run(signal) {
    while (!signal.aborted) {
      await this.#follow(signal).catch((error) => {
        if (error instanceof ControllerError) {
          throw error;
        }
        if (!signal.aborted) {
          this.#hide(`no desk: ${error.message || error.code}`);
        }
      });
      await sleep(RETRY, undefined, { signal }).catch(() => {});
    }
  }

  // Ends every connection, in order as long as the controller does its part.
  async stop(patience) {
    this.#hide('it ends');
    const deadline = Date.now() + patience;
    while (this.#centrals.size > 0 && Date.now() < deadline) {
      await sleep(10);
    }
    [...this.#centrals.keys()].forEach((handle) => this.#disconnected(handle));
    await Promise.race([Promise.all(this.#ending.values()), sleep(patience)]);
  }

  async #follow(signal) {
    for await (const { name, data } of this.#desk.events('/events', signal)) {
      if (name === 'state' && data.camera !== null) {
        await this.#show();
      } else if (name === 'state') {
        this.#hide('no camera');
      }
    }
    throw new Error('it has gone');
  }

  async #show() {
    if (this.#hiddenBecause !== null) {
      this.#hiddenBecause = null;
      await this.#peripheral.advertise(this.#options.name);
      if (this.#hiddenBecause === null) {
        this.#log(`"${this.#options.name}" advertises`);
      }
    }
  }

  #hide(why) {
    if (this.#hiddenBecause === why) {
      return;
    }
    if (this.#hiddenBecause === null) {
      this.#peripheral.hide();
    }
    this.#hiddenBecause = why;
    this.#log(`does not advertise: ${why}`);
  }

  #connected(handle, address) {
    this.#log(`${address} connected`);
    const drop = (reason) => {
      this.#log(`${address} is disconnected: ${reason}`);
      this.#peripheral.disconnect(handle);
    };
    const before = this.#ending.get(address);
    const { type } = this.#options;
    this.#centrals.set(handle, new Central({ desk: this.#desk, flow: this.#flow, address, type, drop, before }));
  }

  #disconnected(handle) {
    const central = this.#centrals.get(handle);
    if (central === undefined) {
      return;
    }
    this.#centrals.delete(handle);
    this.#log(`${central.address} has gone`);
    const ended = central.end().finally(() => {
      if (this.#ending.get(central.address) === ended) {
        this.#ending.delete(central.address);
      }
    });
    this.#ending.set(central.address, ended);
  }
}
