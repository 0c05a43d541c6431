// Elements without markup: whatever a camera or a device says becomes a text node.

// h('button', {class: 'quiet', 'aria-pressed': true, onclick: press}, 'Stop', other). Attributes that are null or false
// are left out, but aria's, for which false is a value; children that are null or false too.
export function h(tag, attributes = {}, ...children) {
    const element = document.createElement(tag);
    for (const [name, value] of Object.entries(attributes)) {
        setAttribute(element, name, value);
    }
    element.append(...children.flat().filter((child) => child !== null && child !== undefined && child !== false));
    return element;
}

export function setAttribute(element, name, value) {
    if (name.startsWith('on')) {
        element.addEventListener(name.slice(2), value);
    } else if (value === null || value === undefined || (value === false && !name.startsWith('aria-'))) {
        element.removeAttribute(name);
    } else if (element.getAttribute(name) !== String(value)) {
        element.setAttribute(name, value === true && !name.startsWith('aria-') ? '' : value);
    }
}

// Only what changed is written: a selection in the page stays, and a live region speaks once.
export function setText(element, text) {
    if (element.textContent !== String(text)) {
        element.textContent = text;
    }
}

export function byId(id) {
    return document.getElementById(id);
}

// A label with its control inside.
export function labelled(text, control, className = '') {
    return h('label', {class: `field ${className}`}, h('span', {}, text), control);
}

// Brings the children of `parent` into the order of `keys`: makes what is new, removes what is gone and leaves the rest
// in place with its focus. Returns the element of each key.
export function keyed(parent, keys, make) {
    const known = new Map([...parent.children].map((child) => [child.dataset.key, child]));
    const elements = new Map();
    let place = parent.firstElementChild;
    for (const key of keys.map(String)) {
        let element = known.get(key);
        known.delete(key);
        if (!element) {
            element = make(key);
            element.dataset.key = key;
        }
        if (element === place) {
            place = place.nextElementSibling;
        } else {
            parent.insertBefore(element, place);
        }
        elements.set(key, element);
    }
    known.forEach((element) => element.remove());
    return elements;
}
