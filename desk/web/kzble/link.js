// The requests of a camera's four interfaces over a transport: one at a time and interface, in order, each with its
// deadline. Events:
//   packet   {stream, bytes, direction: 'write' | 'notify', time}
//   message  {stream, bytes, direction, time, interface}: a whole one, before whoever waits for it gets it
//   gate     {descriptor, value, time}: a descriptor was written by somebody else
//   end      {reason}: once; all that waits is rejected
import {CameraError, Emitter} from './basics.js';
import {Framing} from './framing.js';

const kWriteTimeout = 15_000;  // ms

// One interface: what waits to be written, and what was written and waits for its answer.
class Channel {
    queue = [];
    current = null;
}

export class Link extends Emitter {
    #assemblers = new Map();
    #channels = new Map();
    #ended = null;

    constructor(transport, protocol, timeout) {
        super();
        this.transport = transport;
        this.protocol = protocol;
        this.timeout = timeout;
        this.framing = new Framing(protocol);
        for (const one of protocol.interfaces) {
            this.#channels.set(one.name, new Channel());
            this.#assemblers.set('write ' + one.request, this.framing.assembler('client'));
            this.#assemblers.set('notify ' + one.answer, this.framing.assembler('camera'));
        }
        transport.on('packet', (packet) => this.#take({direction: 'notify', time: new Date(), ...packet}));
        transport.on('gate', (gate) => this.emit('gate', gate));
        transport.on('lost', () => this.#assemblers.forEach((assembler) => assembler.reset()));
        transport.on('end', ({reason}) => this.#end(reason));
    }

    async open() {
        await this.transport.open(this.protocol);
        if (this.#ended) {
            throw this.#endError();
        }
    }

    async close() {
        this.#end('closed here');
        await this.transport.close();
    }

    get ended() { return this.#ended; }

    // Writes a message to an interface; the promise is of the whole answer. Without `answered` it is of the writing
    // alone.
    request(interfaceName, message, {timeout = this.timeout, answered = true, name = null} = {}) {
        return new Promise((resolve, reject) => {
            if (this.#ended) {
                reject(this.#endError(name));
                return;
            }
            const channel = this.#channels.get(interfaceName);
            if (!channel) {
                reject(new CameraError('invalid', `there is no interface "${interfaceName}"`));
                return;
            }
            const packets = this.framing.cut(message);
            channel.queue.push(
                {message, packets, timeout, answered, name, resolve, reject, timer: null, isWritten: false});
            this.#next(interfaceName, channel);
        });
    }

    #next(interfaceName, channel) {
        if (channel.current || channel.queue.length === 0) {
            return;
        }
        const job = channel.queue.shift();
        channel.current = job;
        job.finish = (settle, value) => {
            clearTimeout(job.timer);
            settle(value);
            if (channel.current === job) {
                channel.current = null;
                this.#next(interfaceName, channel);
            }
        };
        job.timer = setTimeout(() => this.#giveUpWriting(job), kWriteTimeout);
        this.#write(this.protocol.interface(interfaceName).request, job, channel);
    }

    async #write(stream, job, channel) {
        try {
            for (const bytes of job.packets) {
                if (this.#ended) {
                    return;
                }
                this.#note({stream, bytes, direction: 'write', time: new Date()});
                await this.transport.write(stream, bytes);
            }
            if (!job.answered) {
                job.finish(job.resolve);
            } else if (channel.current === job) {  // else its answer was here sooner
                job.isWritten = true;
                this.#restartTimer(job);
            }
        } catch (error) {
            job.finish(
                job.reject,
                error instanceof CameraError ? error :
                                               new CameraError(
                                                   'transport', `a packet could not be written: ${error.message}`,
                                                   {command: job.name, cause: error}));
        }
    }

    #restartTimer(job) {
        clearTimeout(job.timer);
        job.timer = setTimeout(() => {
            job.finish(
                job.reject, new CameraError('timed-out', `no answer within ${job.timeout} ms`, {command: job.name}));
        }, job.timeout);
    }

    // Half a message is on its way, and nothing can follow it.
    #giveUpWriting(job) {
        job.reject(new CameraError('timed-out', 'a packet could not be written in time', {command: job.name}));
        this.#end('a packet could not be written in time');
        this.transport.close().catch(() => {});
    }

    // A packet of the transport. Those that this side wrote have been noted already.
    #take(packet) {
        if (!this.#ended && (packet.direction === 'notify' || this.transport.readOnly)) {
            this.#note(packet);
        }
    }

    #note(packet) {
        this.emit('packet', packet);
        const assembler = this.#assemblers.get(packet.direction + ' ' + packet.stream);
        if (!assembler) {
            return;
        }
        const channel = this.protocol.interfaceOf(packet.stream);
        const sizeBefore = assembler.size;
        const message = assembler.add(packet.bytes);
        if (message) {
            this.emit('message', {...packet, bytes: message, interface: channel.name});
        }
        if (packet.direction === 'notify') {
            const job = this.#channels.get(channel.name).current;
            this.#answered(
                job, channel.name, message, assembler.size > sizeBefore && assembler.first === job?.message[0]);
        }
    }

    // A long answer may take longer than the deadline as long as more of it comes.
    #answered(job, interfaceName, message, isComing) {
        if (job?.answered && message && this.protocol.isAnswer(interfaceName, job.message, message)) {
            job.finish(job.resolve, message);
        } else if (job?.isWritten && isComing) {
            this.#restartTimer(job);
        }
    }

    #endError(command = null) {
        return new CameraError('disconnected', `the link has ended: ${this.#ended}`, {command});
    }

    #end(reason) {
        if (this.#ended) {
            return;
        }
        this.#ended = String(reason);
        for (const {queue, current} of this.#channels.values()) {
            for (const job of [...(current ? [current] : []), ...queue.splice(0)]) {
                clearTimeout(job.timer);
                job.reject(this.#endError(job.name));
            }
        }
        this.#assemblers.clear();
        this.emit('end', {reason: this.#ended});
    }
}
