// Settings by their names, each with the options that may be chosen now. They are chosen as a phone does it, so that the
// camera can refuse.
import {h, keyed, setAttribute, setText} from './dom.js';
import {choose, chosen} from './place.js';
import {complain} from './problems.js';

const kSettleTime = 1500;  // ms until a choice that does not show in the state is given up

function optionsOf(catalogue, id) {
    const setting = catalogue?.settings.find((one) => one.id === id);
    return (setting?.options ?? []).map((option) => ({id: option.id, name: option.display_name}));
}

// Options that may be chosen now come first; the camera's filters forbid the others.
function fill(select, all, allowed) {
    const isAllowed = ({id}) => !allowed || allowed.has(id);
    const signature = JSON.stringify(all.map((option) => [option, isAllowed(option)]));
    if (select.dataset.options === signature) {
        return;
    }
    select.dataset.options = signature;
    const made = ({id, name}, disabled) => h('option', {value: id, disabled}, name ?? `option ${id}`);
    const forbidden = all.filter((option) => !isAllowed(option));
    select.replaceChildren(...all.filter(isAllowed).map((option) => made(option, false)),
        ...(forbidden.length > 0 ? [h('optgroup', {label: 'Not now'}, forbidden.map((option) => made(option, true)))] : []));
}

export function showSettings(desk, section, phone, catalogue) {
    const allowed = new Map();  // ids of options by setting
    const waiting = new Map();  // {value, until} by setting: chosen here, and not yet in the state
    const search = h('input', {type: 'search', name: 'setting', placeholder: 'Find a setting', 'aria-label': 'Find a setting',
        value: chosen('setting'), oninput: () => { choose('setting', search.value); show(); }});
    const note = h('p', {class: 'note', role: 'status'});
    const list = h('div', {class: 'list'});
    section.firstElementChild.replaceWith(h('div', {class: 'head'}, section.firstElementChild.cloneNode(true), search));
    section.append(note, list);

    async function set(id, select) {
        const value = Number(select.value);
        waiting.set(id, {value, until: Date.now() + kSettleTime});
        try {
            await phone.ask((camera) => camera.set(id, value));
        } catch (error) {
            waiting.delete(id);
            complain(error);
            show();
        }
    }

    function make(key) {
        const id = Number(key);
        const select = h('select', {name: `setting-${id}`, id: `setting-${id}`, onchange: () => set(id, select)});
        return h('div', {class: 'setting'}, h('label', {for: `setting-${id}`}), select);
    }

    function showOne(row, {id, name, value, option}) {
        const [label, select] = row.children;
        const all = optionsOf(catalogue, id);
        if (!all.some((one) => one.id === value)) {
            all.push({id: value, name: option ?? String(value)});
        }
        fill(select, all, allowed.get(id));
        setText(label, name ?? `Setting ${id}`);
        const wish = waiting.get(id);
        if (wish && (wish.value === value || Date.now() > wish.until)) {
            waiting.delete(id);
        }
        const shown = String(waiting.get(id)?.value ?? value);
        if (select.value !== shown) {
            select.value = shown;
        }
        setAttribute(select, 'disabled', !phone.camera);
        row.classList.toggle('fixed', allowed.has(id) && allowed.get(id).size < 2);
    }

    function show() {
        const settings = desk.state?.camera?.settings ?? [];
        const wanted = search.value.trim().toLowerCase();
        const shown = settings.filter(({id, name}) => `${name ?? ''} ${id}`.toLowerCase().includes(wanted));
        const rows = keyed(list, shown.map(({id}) => id), make);
        shown.forEach((setting) => showOne(rows.get(String(setting.id)), setting));
        setText(note, !phone.camera && desk.state?.camera ? `Nothing can be chosen: ${phone.lack}.` :
            shown.length === 0 && settings.length > 0 ? 'No setting has that name.' : '');
    }

    desk.on('state', show);
    phone.on('connect', async ({camera}) => {
        allowed.clear();
        try {
            await camera.watch({capabilities: true}, ({id, options}) => {
                allowed.set(id, new Set(options.map((option) => option.id)));
                show();
            });
        } catch (error) {
            complain(error);
        }
    });
    ['end', 'failed'].forEach((event) => phone.on(event, show));
}
