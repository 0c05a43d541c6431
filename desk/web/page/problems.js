// What did not work, said once at the top of the page, until it is closed or time has passed.
import {byId, h} from './dom.js';

const kShown = 12_000;  // ms

export function complain(error) {
    const box = h('p', {class: 'problem'}, h('span', {}, error.message ?? String(error)),
        h('button', {type: 'button', class: 'quiet', 'aria-label': 'Close this message', onclick: () => box.remove()}, '×'));
    byId('problems').replaceChildren(box);
    setTimeout(() => box.remove(), kShown);
}

// A handler that complains when what it does fails.
export function tried(action) {
    return async (...values) => {
        try {
            await action(...values);
        } catch (error) {
            complain(error);
        }
    };
}
