// A central that is connected: a device of the desk, as long as the connection lasts.
//
// What it writes reaches the desk in order, one request at a time. What the camera notifies is fetched only as fast as
// the link takes it; the rest waits in the desk, which keeps a thousand events. A central for which the desk had to
// throw events away is disconnected, because no packet of a message may be missing.

const MOST_WAITING = 1000; // writes without response, more than the longest message of a client has

export class Central {
  #desk;
  #flow;
  #drop;
  #abort = new AbortController();
  #notify = new Map(); // by stream
  #waiting = 0;
  #path;
  #jobs;
  #life;

  // `drop` is called once with the reason when the connection has to end.
  constructor({ desk, flow, address, type, drop, before = Promise.resolve() }) {
    this.#desk = desk;
    this.#flow = flow;
    this.#drop = drop;
    this.address = address;
    this.#jobs = before.then(() => this.#connect(address, type)).catch((error) => this.#fail(error));
    this.#life = this.#jobs.then(() => this.#path && this.#pass());
  }

  write(interface_, packet, answer) {
    const body = { stream: interface_.request, bytes: packet.toString('hex') };
    this.#inTurn(async () => {
      try {
        await this.#ask('write', body);
        answer(true);
      } catch (error) {
        answer(false);
        throw error;
      }
    });
  }

  gate(interface_, notify) {
    if (notify === null) {
      this.#notify.delete(interface_.answer);
    } else {
      this.#notify.set(interface_.answer, notify);
    }
    this.#inTurn(() => this.#ask('ccc', { descriptor: interface_.gate, value: notify === null ? 0 : 1 }));
  }

  // The connection has ended. The promise is settled when the desk's device has, too.
  async end() {
    this.#abort.abort();
    await this.#jobs;
    await this.#life;
    if (this.#path) {
      await this.#desk.ask('DELETE', this.#path).catch(() => {}); // it may have ended, and the desk as well
    }
  }

  async #connect(address, type) {
    const { device } = await this.#desk.ask('POST', '/devices', { address, type });
    this.#path = `/devices/${device}`;
  }

  #ask(what, body) {
    return this.#desk.ask('POST', `${this.#path}/${what}`, body);
  }

  #inTurn(job) {
    if (++this.#waiting > MOST_WAITING) {
      this.#fail(new Error('it writes faster than the desk takes it'));
    }
    this.#jobs = this.#jobs
      .then(() => (this.#abort.signal.aborted ? undefined : job()))
      .catch((error) => this.#fail(error))
      .then(() => --this.#waiting);
  }

  async #pass() {
    try {
      for await (const { name, data } of this.#desk.events(`${this.#path}/events`, this.#abort.signal)) {
        await this.#take(name, data);
      }
      throw new Error('the desk has gone');
    } catch (error) {
      this.#fail(error);
    }
  }

  async #take(name, data) {
    if (name === 'packet' && data.direction === 'notify' && this.#notify.has(data.stream)) {
      const packet = Buffer.from(data.bytes.replaceAll(' ', ''), 'hex');
      await this.#flow.whenRoom(() => this.#notify.get(data.stream)?.(packet), this.#abort.signal);
    } else if (name === 'lost') {
      throw new Error(`the link is too slow: ${data.events} events were lost`);
    } else if (name === 'end') {
      throw new Error(`the camera's side ended: ${data.reason}`);
    }
  }

  #fail(error) {
    if (!this.#abort.signal.aborted) {
      this.#abort.abort();
      this.#drop(error.message);
    }
  }
}
