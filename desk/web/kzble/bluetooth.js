// A camera as a Bluetooth LE peripheral, by the Web Bluetooth interface of a browser or of what stands for it in Node.
import {CameraError, Emitter, Sequence} from './basics.js';

// Emits packet {stream, bytes} and end {reason}.
export class WebBluetoothTransport extends Emitter {
    #wanted;
    #uuids;
    #device = null;
    #interfaces = new Map();  // by request stream: {write}; by gate: {notify}
    #work = new Sequence();   // a device takes one operation at a time
    #ended = false;
    #isLost = () => this.#end('the device is disconnected');

    // What navigator.bluetooth.requestDevice() gave or is to be asked; the service's UUID is added. The UUIDs are those
    // of desk/uuids.json.
    constructor(deviceOrOptions, uuids) {
        super();
        this.#wanted = deviceOrOptions;
        this.#uuids = uuids;
        this.readOnly = false;
        this.opensGates = false;
    }

    async open(protocol) {
        try {
            this.#device = this.#wanted?.gatt ? this.#wanted : await this.#request();
            this.#device.addEventListener('gattserverdisconnected', this.#isLost);
            const server = await this.#device.gatt.connect();
            const service = await server.getPrimaryService(this.#uuids.service);
            for (const {name, request, answer, gate} of protocol.interfaces) {
                const uuids = this.#uuids[name];
                const write = await service.getCharacteristic(uuids.write);
                const notify = await service.getCharacteristic(uuids.notify);
                notify.addEventListener('characteristicvaluechanged', ({target: {value}}) => {
                    this.emit('packet', {
                        stream: answer,
                        bytes: new Uint8Array(value.buffer, value.byteOffset, value.byteLength).slice()
                    });
                });
                this.#interfaces.set('write ' + request, write).set('gate ' + gate, notify);
            }
        } catch (error) {
            await this.close();
            throw failed(error);
        }
    }

    #request() {
        const options = this.#wanted ?? {};
        const services = {optionalServices: [...(options.optionalServices ?? []), this.#uuids.service]};
        const filters =
            options.acceptAllDevices || options.filters ? {} : {filters: [{services: [this.#uuids.service]}]};
        return navigator.bluetooth.requestDevice({...options, ...filters, ...services});
    }

    write(stream, bytes) {
        const characteristic = this.#find('write ' + stream);
        return this.#run(
            () =>
                (characteristic.properties.write ? characteristic.writeValueWithResponse(bytes) :
                                                   characteristic.writeValueWithoutResponse(bytes)));
    }

    // A browser writes the descriptor itself, when notifications are started or stopped.
    gate(descriptor, isOpen) {
        const characteristic = this.#find('gate ' + descriptor);
        return this.#run(() => (isOpen ? characteristic.startNotifications() : characteristic.stopNotifications()));
    }

    async close() {
        this.#end('closed here');
        this.#device?.gatt.disconnect();
    }

    #run(operation) {
        return this.#work.run(operation).catch((error) => {
            throw failed(error);
        });
    }

    #find(key) {
        const characteristic = this.#interfaces.get(key);
        if (!characteristic || this.#ended) {
            throw new CameraError(this.#ended ? 'disconnected' : 'invalid', `Bluetooth: no ${key}`);
        }
        return characteristic;
    }

    #end(reason) {
        if (!this.#ended) {
            this.#ended = true;
            this.#device?.removeEventListener('gattserverdisconnected', this.#isLost);
            this.emit('end', {reason});
        }
    }
}

function failed(error) { return new CameraError('transport', `Bluetooth: ${error.message}`, {cause: error}); }
