// Lets the GATT libraries use a channel of ours in place of the HCI drivers that they bring. This module has to be
// imported before them: they take the function that finds a driver as it is when they are loaded.

import { EventEmitter } from 'node:events';

import hciSocket from '@stoprocent/bluetooth-hci-socket';

const ours = new Map();
const loadOther = hciSocket.loadDriver;
hciSocket.loadDriver = (name) => ours.get(name) ?? loadOther(name);

// The options with which a library uses the channel. The flow is to be one that writes to the channel.
export function driveChannel(channel, flow) {
  class Driver extends EventEmitter {
    #take = (packet) => {
      this.emit('data', packet);
      flow.read(packet);
    };

    bindUser() {
      channel.on('packet', this.#take);
      return 0;
    }

    write(packet) {
      flow.write(packet);
    }

    stop() {
      channel.off('packet', this.#take);
    }

    // The kernel's socket for keys of paired devices; there is none here, and what is written to it goes nowhere.
    bindControl() {
      this.write = () => {};
    }

    start() {}
    setFilter() {}
    isDevUp() {
      return true;
    }
  }
  const name = `channel ${ours.size}`;
  ours.set(name, Driver);
  // The library sets the controller up itself. One of the libraries takes this from the environment only.
  process.env.HCI_CHANNEL_USER = '1';
  return { hciDriver: name, userChannel: true };
}
