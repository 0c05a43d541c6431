// Starts the page: one stream of the desk, one phone, and the panels, each of which follows the stream by itself.
import {showBuffers} from './buffers.js';
import {showControls} from './controls.js';
import {Desk, ask} from './desk.js';
import {showDevices} from './devices.js';
import {byId, setText} from './dom.js';
import {showFace} from './face.js';
import {showLog} from './log.js';
import {Phone} from './phone.js';
import {showPlot} from './plot.js';
import {complain} from './problems.js';
import {Samples} from './samples.js';
import {showSettings} from './settings.js';
import {TestSensor} from './testSensor.js';
import {Traffic} from './traffic.js';

function showLink(desk, phone) {
    const link = byId('link');
    const lack = () => {
        if (!desk.isLinked) {
            return 'the desk does not answer';
        }
        return !desk.state.camera ? 'no camera' : phone.problem ? phone.lack : null;
    };
    const show = () => {
        const problem = lack();
        setText(link, problem ?? `model ${desk.state.camera.model} at ${location.host}`);
        document.body.classList.toggle('offline', !desk.isLinked);
        link.classList.toggle('bad', problem !== null);
    };
    desk.on('link', show);
    desk.on('state', show);
    ['connect', 'end', 'failed'].forEach((event) => phone.on(event, show));
}

async function start() {
    // A camera without a catalogue has numbers for names.
    const [protocol, catalogue] = await Promise.all([ask('GET', 'protocol.json'), ask('GET', 'catalogue.json').catch(() => null)]);
    const desk = new Desk();
    const phone = new Phone(desk, protocol, catalogue);
    phone.on('end', ({reason}) => complain(new Error(`The phone of this page was disconnected: ${reason}`)));
    showLink(desk, phone);
    showFace(desk, byId('face'));
    showBuffers(desk, byId('face'));
    showControls(desk, byId('controls'), phone);
    showSettings(desk, byId('settings'), phone, catalogue);
    const log = showLog(desk, byId('log'), new Traffic(desk, protocol, catalogue));
    showDevices(desk, byId('devices'), phone, protocol, log);
    showPlot(desk, byId('plot'), new Samples(desk), new TestSensor(desk));
    desk.follow();
}

start().catch(complain);
