// The traffic as a list with a filter, which stands in the page's address. New entries come at the end; who reads
// further up is not disturbed.
import {h, keyed, labelled, setAttribute, setText} from './dom.js';
import {chosen, choose} from './place.js';

const kShown = 250;
const kTurn = 120;  // ms between two drawings

// Each has to be found, or, with '-' in front, not to be found. Bytes with blanks between them are one word.
function wordsOf(text) {
    const joined = text.trim().toLowerCase().replace(/\b([0-9a-f]{2}) (?=[0-9a-f]{2}\b)/g, '$1');
    return joined.split(/\s+/).filter(Boolean);
}

function row(entry) {
    const isOpen = {now: false};
    const detail = h('pre', {class: 'detail', hidden: true});
    const title = h('button', {type: 'button', class: 'title', 'aria-expanded': false, onclick: () => {
        isOpen.now = !isOpen.now;
        detail.hidden = !isOpen.now;
        setText(detail, [entry.full ?? entry.text, entry.bytes].filter(Boolean).join('\n'));
        setAttribute(title, 'aria-expanded', isOpen.now);
    }}, entry.title);
    const toCamera = entry.direction === 'write';
    const arrow = entry.direction ? h('span', {class: toCamera ? 'arrow out' : 'arrow in', role: 'img',
        'aria-label': toCamera ? 'to the camera' : 'from the camera'}, toCamera ? '→' : '←') : h('span', {class: 'arrow'});
    return h('li', {class: [entry.event, entry.what, entry.isBad && 'bad'].filter(Boolean).join(' ')},
        h('time', {datetime: entry.time}, new Date(entry.time).toLocaleTimeString([], {hour12: false}) + entry.time.slice(19, 23)),
        h('span', {class: 'device', title: 'device'}, entry.device), arrow, h('span', {class: 'interface'}, entry.interface ?? ''),
        title, h('span', {class: 'text'}, entry.text), h('code', {}, entry.bytes ?? ''), detail);
}

export function showLog(desk, section, traffic) {
    const search = h('input', {type: 'search', name: 'filter', placeholder: 'Name, value or bytes; -sample leaves out', value: chosen('filter')});
    const device = h('select', {name: 'device'}, h('option', {value: ''}, 'all devices'));
    const kinds = h('select', {name: 'show'}, [['', 'messages'], ['packets', 'packets'], ['both', 'both']].map(([value, text]) => (
        h('option', {value, selected: chosen('show') === value}, text))));
    const pause = h('button', {type: 'button', class: 'quiet'}, 'Pause');
    const clear = h('button', {type: 'button', class: 'quiet', onclick: () => traffic.clear()}, 'Clear');
    const count = h('span', {class: 'note', role: 'status'});
    const list = h('ol', {class: 'entries', tabindex: 0, 'aria-label': 'Messages, newest last'});
    section.append(h('div', {class: 'row filter', role: 'search'}, labelled('Filter', search, 'grow'), labelled('Of', device),
        labelled('Show', kinds), pause, clear), list, count);

    let isPaused = false;
    let isDue = false;

    let words = [];

    function fits(entry) {
        const kind = kinds.value;
        const isWanted = kind === 'both' || (kind === 'packets' ? entry.event !== 'message' : entry.event !== 'packet');
        return isWanted && (device.value === '' || String(entry.device) === device.value) &&
            words.every((word) => (word.length > 1 && word[0] === '-' ? !entry.searched.includes(word.slice(1)) : entry.searched.includes(word)));
    }

    function draw() {
        isDue = false;
        if (isPaused) {
            return;
        }
        words = wordsOf(search.value);
        const shown = traffic.last(kShown, fits);
        const byKey = new Map(shown.map((entry) => [entry.key, entry]));
        const followsEnd = list.scrollHeight - list.scrollTop - list.clientHeight < 40;
        keyed(list, [...byKey.keys()], (key) => row(byKey.get(key)));
        if (followsEnd) {
            list.scrollTop = list.scrollHeight;
        }
        setText(count, shown.length === 0 ? (traffic.entries.length > 0 ? 'Nothing fits the filter.' : 'Nothing has passed yet.') :
            shown.length < kShown ? '' : `The last ${kShown}; the filter finds older ones.`);
    }

    function soon() {
        if (!isDue) {
            isDue = true;
            setTimeout(draw, kTurn);
        }
    }

    function chooseDevice(number) {
        if (number !== '' && ![...device.options].some((option) => option.value === String(number))) {
            device.append(h('option', {value: number}, `device ${number}`));
        }
        device.value = number;
    }

    function showDevices({devices}) {
        const numbers = devices.map((one) => String(one.device));
        const chosenNow = device.value;
        const wanted = ['', ...new Set([...numbers, ...(chosenNow ? [chosenNow] : [])])];
        if (wanted.join() !== [...device.options].map((option) => option.value).join()) {
            device.replaceChildren(...wanted.map((value) => h('option', {value}, value ? `device ${value}` : 'all devices')));
            device.value = chosenNow;
        }
    }

    for (const [name, control] of [['filter', search], ['device', device], ['show', kinds]]) {
        control.addEventListener('input', () => {
            choose(name, control.value);
            draw();
        });
    }
    pause.addEventListener('click', () => {
        isPaused = !isPaused;
        setText(pause, isPaused ? 'Go on' : 'Pause');
        draw();
    });
    chooseDevice(chosen('device'));
    traffic.onChange(soon);
    desk.on('state', showDevices);
    draw();
    return {
        showDevice(number) {
            chooseDevice(number);
            choose('device', number);
            draw();
            section.focus();
        },
    };
}
