// Names and texts that several panels show.

// Ids of status fields that the camera's face shows.
export const status = {
    externalPower: 3, tooHot: 6, busy: 8, encoding: 10, secondsRecorded: 13, joinedNetwork: 29, ownNetwork: 30,
    clients: 31, card: 33, photosLeft: 34, videoSecondsLeft: 35, photos: 38, videos: 39, mode: 43, locating: 45,
    bytesFree: 54, momentsTagged: 58, accessPoint: 69, battery: 70, tooCold: 85, preset: 97, bytesTotal: 117,
};

export const modes = ['Video', 'Photo', 'Time lapse'];
export const cards = ['in', 'full', 'out'];

export function clock(seconds) {
    const two = (number) => String(number).padStart(2, '0');
    const hours = Math.floor(seconds / 3600);
    const rest = `${two(Math.floor(seconds / 60) % 60)}:${two(seconds % 60)}`;
    return hours > 0 ? `${hours}:${rest}` : rest;
}

export function size(bytes) {
    return `${(bytes / 1e9).toFixed(1)} GB`;
}

export function counted(number, one, several = one + 's') {
    return `${number} ${number === 1 ? one : several}`;
}

export function bytesOf(hex) {
    return hex ? hex.split(' ').map((pair) => parseInt(pair, 16)) : [];
}

export function hexOf(bytes) {
    return [...bytes].map((byte) => byte.toString(16).padStart(2, '0')).join(' ');
}

export function printable(bytes) {
    return bytes.map((byte) => (byte >= 32 && byte < 127 ? String.fromCharCode(byte) : '·')).join('');
}
