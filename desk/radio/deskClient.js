// The part of the desk's HTTP interface that the radio needs (desk/openapi.json).

import http from 'node:http';

const PATIENCE = 10_000; // ms for an answer
const LONGEST_SILENCE = 45_000; // ms; the desk sends a comment each 15 seconds

// The desk's refusal.
export class DeskError extends Error {
  constructor(status, { code, message } = {}) {
    super(message ?? `the desk answers with status ${status}`);
    this.status = status;
    this.code = code;
  }
}

export class Desk {
  constructor(url) {
    this.url = url;
  }

  // The answer's JSON, or null when it has none. Throws a DeskError, or an Error when the desk cannot be reached.
  async ask(method, path, body) {
    const signal = AbortSignal.timeout(PATIENCE);
    const response = await this.#send(method, path, body && JSON.stringify(body), signal);
    const text = await bodyOf(response);
    if (response.statusCode >= 400) {
      throw refusal(response.statusCode, text);
    }
    return text === '' ? null : JSON.parse(text);
  }

  // An event stream: {name, data} one after the other, until it ends or the signal is aborted. What is not taken waits
  // in the connection, and behind that in the desk.
  async *events(path, signal) {
    const response = await this.#send('GET', path, undefined, signal);
    if (response.statusCode !== 200) {
      throw refusal(response.statusCode, await bodyOf(response));
    }
    response.socket.setTimeout(LONGEST_SILENCE, () => response.destroy(new Error('the desk is silent')));
    let rest = '';
    for await (const text of response.setEncoding('utf8')) {
      const blocks = (rest + text).split('\n\n');
      rest = blocks.pop();
      for (const block of blocks) {
        const fields = new Map(block.split('\n').map((line) => line.split(/: (.*)/s, 2)));
        if (fields.has('event')) {
          yield { name: fields.get('event'), data: JSON.parse(fields.get('data')) };
        }
      }
    }
  }

  #send(method, path, body, signal) {
    const headers = body === undefined ? {} : { 'content-type': 'application/json' };
    return new Promise((resolve, reject) => {
      const request = http.request(new URL(path, this.url), { method, headers, signal, agent: false }, resolve);
      request.on('error', reject);
      request.end(body);
    });
  }
}

async function bodyOf(response) {
  let text = '';
  for await (const part of response.setEncoding('utf8')) {
    text += part;
  }
  return text;
}

function refusal(status, text) {
  try {
    return new DeskError(status, JSON.parse(text).error);
  } catch {
    return new DeskError(status);
  }
}
