// Who is connected to the camera: the devices of the desk, with their gates and what they registered for, and others
// such as kzble, of which only the radio knows.
import {act, ask} from './desk.js';
import {h, keyed, labelled, setAttribute, setText} from './dom.js';
import {counted} from './names.js';
import {tried} from './problems.js';

function interestsText({interests}, names) {
    const known = [['settings', 'setting'], ['capabilities', 'setting\'s options', 'settings\' options'], ['status', 'status field']];
    const counts = known.filter(([kind]) => interests[kind]?.length).map(([kind, ...words]) => counted(interests[kind].length, ...words));
    const buffers = ['display', 'led'].filter((kind) => interests[kind]).map((kind) => names[kind]);
    const all = [...counts, ...buffers];
    return all.length > 0 ? `Watches ${all.join(', ')}` : 'Watches nothing';
}

// Names of what it watches.
function interestNames({interests}, {camera}) {
    const nameOf = (rows, id) => rows?.find((row) => row.id === id)?.name ?? id;
    const line = (kind, rows) => (interests[kind]?.length ? `${kind}: ${interests[kind].map((id) => nameOf(rows, id)).join(', ')}` : null);
    return [line('settings', camera?.settings), line('capabilities', camera?.settings), line('status', camera?.status)]
        .filter(Boolean).join('\n');
}

// To a sensor the camera connects, and opens the gates itself.
function isOpen({gates, central}, gate) {
    return (gates[gate] ?? (central ? 1 : 0)) === 1;
}

function connectForm(protocol) {
    const type = h('select', {name: 'type'}, protocol.deviceTypes.map(({id, name}) => (
        h('option', {value: id, selected: name === 'phone'}, name))));
    const gates = h('input', {type: 'checkbox', name: 'gates', checked: true});
    const central = h('input', {type: 'checkbox', name: 'central'});
    const connect = tried((event) => {
        event.preventDefault();
        return ask('POST', 'devices', {type: Number(type.value), gates: gates.checked && !central.checked, central: central.checked});
    });
    return h('form', {class: 'inline connect', onsubmit: connect}, labelled('Type', type),
        h('label', {class: 'switch'}, gates, h('span', {}, 'open gates')),
        h('label', {class: 'switch'}, central, h('span', {}, 'camera connects')), h('button', {type: 'submit'}, 'Connect'));
}

export function showDevices(desk, section, phone, protocol, log) {
    const list = h('ul', {class: 'list'});
    const count = h('span', {class: 'count'});
    section.firstElementChild.append(' ', count);
    section.append(list, connectForm(protocol));
    const typeName = (type) => protocol.deviceTypes.find(({id}) => id === type)?.name ?? `type ${type}`;

    const ofDesk = (connection) => desk.state.devices.find((one) => one.connection === connection);

    function gateButtons(connection) {
        return protocol.interfaces.map(({name, gate}) => h('button', {type: 'button', class: 'gate', 'data-gate': gate,
            'aria-pressed': false, title: `${name} gate: its notifications`,
            onclick: tried(() => {
                const device = ofDesk(connection);
                return ask('POST', `devices/${device.device}/ccc`, {descriptor: gate, value: isOpen(device, gate) ? 0 : 1});
            })}, name));
    }

    function make(key) {
        const connection = Number(key);
        const disconnect = tried(() => {
            const device = ofDesk(connection);
            return device ? ask('DELETE', `devices/${device.device}`) : act('radio', 'drop', 0, connection);
        });
        return h('li', {}, h('div', {class: 'row'}, h('strong', {class: 'who'}), h('span', {class: 'mark'}),
            h('span', {class: 'counts'})),
        h('div', {class: 'gates', role: 'group', 'aria-label': 'Gates'}, gateButtons(connection)),
        h('div', {class: 'row'}, h('details', {class: 'interests'}, h('summary', {}), h('p', {class: 'note'})), h('button', {type: 'button', class: 'quiet', 'data-does': 'traffic',
            onclick: () => log.showDevice(ofDesk(connection).device)}, 'Traffic'),
        h('button', {type: 'button', class: 'quiet', onclick: disconnect}, 'Disconnect')));
    }

    function show(item, connection) {
        const device = ofDesk(connection.id);
        const part = (query) => item.querySelector(query);
        const isOurs = device && device.device === phone.device;
        setText(part('.who'), device ? `${device.device} · ${typeName(device.type)}` : typeName(connection.type));
        setText(part('.mark'), isOurs ? 'this page' : device ? device.address : 'another program');
        setText(part('.counts'), device ? `↑ ${device.packetsOut} ↓ ${device.packetsIn}` : `↓ ${connection.packets}`);
        setAttribute(part('.counts'), 'title', 'packets to and from the camera');
        part('.gates').hidden = !device;
        part('[data-does=traffic]').hidden = !device;
        for (const button of device ? item.querySelectorAll('.gate') : []) {
            setAttribute(button, 'aria-pressed', isOpen(device, button.dataset.gate));
        }
        setText(part('.interests summary'), device ? interestsText(device, {display: 'the display', led: 'the LEDs'}) :
            'Its gates and interests are known to the camera alone.');
        const names = device ? interestNames(device, desk.state) : '';
        setText(part('.interests p'), names);
        part('.interests').classList.toggle('plain', names === '');
    }

    desk.on('state', ({connections}) => {
        setText(count, connections.length);
        const items = keyed(list, connections.map(({id}) => id), make);
        connections.forEach((connection) => show(items.get(String(connection.id)), connection));
    });
}
