// Why the program ends. Imported first, so that a signal ends it in order from its first moment.

// The end with this status; without a message there is nothing to say.
export class End extends Error {
  constructor(status, message = '') {
    super(message);
    this.status = status;
  }
}

const controller = new AbortController();

// Aborted when the program is to end; its reason is an End.
export const ending = controller.signal;

// Only the first reason counts.
export function end(status, message) {
  controller.abort(new End(status, message));
}

const aborted = new Promise((_, reject) => {
  ending.addEventListener('abort', () => reject(ending.reason));
});
aborted.catch(() => {});

// What the promise gives. Throws the End when that comes first.
export function unlessEnding(promise) {
  return Promise.race([promise, aborted]);
}

['SIGINT', 'SIGTERM'].forEach((signal) => process.on(signal, () => end(0)));
