// What the tests of the JavaScript library share.
import assert from 'node:assert/strict';
import {readFileSync} from 'node:fs';

import {CameraError, Protocol} from '../../desk/web/kzble.js';

const kProject = new URL('../..', import.meta.url);

export const library = new URL('desk/web/kzble.js', kProject).href;
export const read = (path) => readFileSync(new URL(path, kProject), 'utf8');
export const protocol = new Protocol(JSON.parse(read('protocol/protocol.json')));

// For assert.rejects and assert.throws: a CameraError of this code, with these members.
export function failure(code, members = {}) {
    return (error) => {
        assert.ok(error instanceof CameraError, error);
        const got = Object.fromEntries(Object.keys(members).map((key) => [key, error[key]]));
        assert.deepEqual({code: error.code, ...got}, {code, ...members});
        return true;
    };
}

export async function until(what, condition) {
    const end = Date.now() + 20_000;
    while (!await condition()) {
        assert.ok(Date.now() < end, `waited in vain for ${what}`);
        await new Promise((resolve) => {
            setTimeout(resolve, 5);
        });
    }
}
