// kzble.js - the camera's BLE SDK for apps: packets, messages, requests by names, pushes. Plain JavaScript without
// dependencies for Node (18 and later), browsers and app frameworks. Commands and values are those of protocol.json.
//
//   const protocol = await (await fetch('http://127.0.0.1:8080/protocol.json')).json();
//   const camera = await connect(new DeskTransport('http://127.0.0.1:8080', {type: 'phone'}), protocol);
//   const [resolution] = await camera.get('video resolution');   // {id, name, value, option}
//   await camera.set('video resolution', '4k');
//   await camera.command('shutter', 'on');                       // {name, result, values, bytes}
//   const stop = await camera.watch(['encoding', 'video resolution'], ({name, value}) => console.log(name, value));
//   await stop();
//   await camera.close();
//
// A transport has open(protocol), write(stream, Uint8Array), gate(descriptor, isOpen), close(), the flags `opensGates`
// (open() has opened them) and `readOnly`, and on(event, listener) for
//   packet  {stream, bytes: Uint8Array, direction: 'notify' (or, of somebody else's device, also 'write'), time}
//   end     {reason}, once
// A Camera has
//   command(name, values), send(name, values), feature(name, body), raw(interface, bytes)
//   get(...names), status(...names), capabilities(...names), set(name, option), watch(what, callback)
//   catalogue(), decode(stream, bytes, direction), close()
//   on(event, listener), which returns a function that ends it: packet, gate, message and push (both with what
//   decode() gives), and end {reason}
// Everything that fails rejects with a CameraError {code, message, command, result}; kzble/basics.js has the codes.
import {Camera} from './kzble/camera.js';
import {Link} from './kzble/link.js';
import {Protocol} from './kzble/protocol.js';

export {bytesOf, CameraError, hex} from './kzble/basics.js';
export {WebBluetoothTransport} from './kzble/bluetooth.js';
export {Camera} from './kzble/camera.js';
export {Catalogue} from './kzble/catalogue.js';
export {Decoder} from './kzble/decoder.js';
export {DeskTransport} from './kzble/desk.js';
export {Framing} from './kzble/framing.js';
export {Protocol} from './kzble/protocol.js';

// `protocol`: protocol.json, parsed. `catalogue`: a settings.json, parsed, or a Catalogue; null does without names;
// when it is left out it is fetched over the link as soon as names are needed. `timeout`: ms for an answer to begin and
// go on.
export async function connect(transport, protocol, {catalogue, timeout = 5000} = {}) {
    const link = new Link(transport, Protocol.of(protocol), timeout);
    const camera = new Camera(link, catalogue);
    await link.open();
    if (!transport.opensGates) {
        try {
            for (const {gate} of link.protocol.interfaces) {
                await transport.gate(gate, true);
            }
        } catch (error) {
            await link.close();
            throw error;
        }
    }
    return camera;
}
