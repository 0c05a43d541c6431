// A sensor that this page plays: an accelerometer of three axes and a pulse, ten samples a second. A reload goes on with
// the device that the page had.
import {ask, write} from './desk.js';
import {hexOf} from './names.js';

const kRequests = 17;
const kPeriod = 100;  // ms
const kDevice = 'test-sensor';  // of the session's storage

function text(characters) {
    return hexOf(new TextEncoder().encode(characters));
}

function shorts(...values) {
    const view = new DataView(new ArrayBuffer(2 * values.length));
    values.forEach((value, index) => view.setInt16(2 * index, Math.round(value), true));
    return hexOf(new Uint8Array(view.buffer));
}

export class TestSensor {
    device = null;

    constructor(desk) {
        const known = Number(sessionStorage.getItem(kDevice));
        desk.on('state', ({devices}) => {
            if (this.device === null && known > 0 && devices.some((one) => one.device === known && one.typeName === 'sensor')) {
                this.#run(known);
            }
        });
    }

    get isRunning() {
        return this.device !== null;
    }

    async start() {
        const {device} = await ask('POST', 'devices', {type: 'sensor', central: true});
        await write(device, kRequests, `02 01 ${text('Wrist')}`);
        await write(device, kRequests, `03 ${text('ACCL')} 00 00 ${text('s')} 06 01 00`);
        await write(device, kRequests, `03 ${text('PULS')} 01 00 ${text('s')} 02 01 00`);
        this.#run(device);
    }

    async stop() {
        const device = this.device;
        this.device = null;
        sessionStorage.removeItem(kDevice);
        await ask('DELETE', `devices/${device}`);
    }

    async #run(device) {
        this.device = device;
        sessionStorage.setItem(kDevice, device);
        try {
            for (let step = 0; this.device === device; ++step) {
                await this.#send(device, Date.now() / 1000, step);
                await new Promise((resolve) => { setTimeout(resolve, kPeriod); });
            }
        } catch {
            this.device = null;  // disconnected by the camera, or the desk has gone
        }
    }

    async #send(device, now, step) {
        const swing = 4000 * Math.sin(now * 2.2) * Math.sin(now * 0.31);
        const noise = () => 350 * (Math.random() - 0.5);
        await write(device, kRequests, `01 00 ${shorts(swing + noise(), 2500 * Math.cos(now * 1.3) + noise(), 8192 + swing / 5 + noise())}`);
        if (step % 10 === 0) {
            await write(device, kRequests, `01 01 ${shorts(78 + 14 * Math.sin(now / 9) + 2 * Math.random())}`);
        }
    }
}
