// The requests of a camera's four interfaces over a transport: one at a time and interface, in order, each with its
// deadline. Events:
//   packet   {stream, bytes, direction: 'write' | 'notify', time}
//   message  {stream, bytes, direction, time, interface}: a whole one, before whoever waits for it gets it
//   gate     {descriptor, value, time}: a descriptor was written by somebody else
//   end      {reason}: once; all that waits is rejected
import {CameraError, Emitter} from './basics.js';
import {Framing} from './framing.js';

const kWriteTimeout = 15_000;  // ms
const kEndPatience = 1000;     // ms, from a write that found the device gone to the transport's end

// One interface: what waits to be written, and what is being written or waits for its answer.
class Channel {
    queue = [];
    current = null;

    constructor(stream) { this.stream = stream; }
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
            this.#channels.set(one.name, new Channel(one.request));
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
            channel.queue.push({channel, message, packets, timeout, answered, name, resolve, reject});
            this.#next(channel);
        });
    }

    #next(channel) {
        if (channel.current || channel.queue.length === 0) {
            return;
        }
        const job = channel.queue.shift();
        channel.current = job;
        job.writeTimer = setTimeout(() => this.#giveUpWriting(job), kWriteTimeout);
        this.#write(job);
    }

    async #write(job) {
        try {
            for (const bytes of job.packets) {
                this.#note({stream: job.channel.stream, bytes, direction: 'write', time: new Date()});
                await this.transport.write(job.channel.stream, bytes);
                if (this.#ended) {
                    return;
                }
            }
            if (job.answered) {
                this.#restartTimer(job);
            } else {
                this.#settle(job, job.resolve);
            }
        } catch (error) {
            const failure = this.#writeError(error, job.name);
            if (failure.code === 'disconnected') {
                await this.#expectEnd(failure.message);
            }
            this.#settle(job, job.reject, failure);
        }
        clearTimeout(job.writeTimer);
        job.isWritten = true;
        this.#advance(job);
    }

    #writeError(error, command) {
        return error instanceof CameraError ?
            error :
            new CameraError('transport', `a packet could not be written: ${error.message}`, {command, cause: error});
    }

    #settle(job, settle, value) {
        clearTimeout(job.timer);
        job.isSettled = true;
        settle(value);
        this.#advance(job);
    }

    // An answer may come before all is written, to a packet that the camera could not use. The rest must not be mixed
    // with the next message.
    #advance(job) {
        if (job.isSettled && job.isWritten && job.channel.current === job) {
            job.channel.current = null;
            this.#next(job.channel);
        }
    }

    #restartTimer(job) {
        clearTimeout(job.timer);
        if (!job.isSettled) {
            job.timer = setTimeout(() => {
                const error = new CameraError('timed-out', `no answer within ${job.timeout} ms`, {command: job.name});
                this.#settle(job, job.reject, error);
            }, job.timeout);
        }
    }

    // Half a message is on its way, and nothing can follow it.
    #giveUpWriting(job) {
        job.reject(new CameraError('timed-out', 'a packet could not be written in time', {command: job.name}));
        this.#end('a packet could not be written in time');
        this.transport.close().catch(() => {});
    }

    // A write may learn before the transport's end that the device is gone; the end knows the reason.
    async #expectEnd(otherReason) {
        const end = Date.now() + kEndPatience;
        while (!this.#ended && Date.now() < end) {
            await new Promise((resolve) => {
                setTimeout(resolve, 10);
            });
        }
        if (!this.#ended) {
            this.#end(otherReason);
            this.transport.close().catch(() => {});
        }
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
        const {name} = this.protocol.interfaceOf(packet.stream);
        const sizeBefore = assembler.size;
        const message = assembler.add(packet.bytes);
        if (message) {
            this.emit('message', {...packet, bytes: message, interface: name});
        }
        const job = packet.direction === 'notify' ? this.#channels.get(name).current : null;
        if (job?.answered && !job.isSettled) {
            const isComing = assembler.size > sizeBefore && assembler.first === job.message[0];
            this.#answered(job, name, message, isComing);
        }
    }

    // A long answer may take longer than the deadline as long as more of it comes.
    #answered(job, interfaceName, message, isComing) {
        if (message && this.protocol.isAnswer(interfaceName, job.message, message)) {
            this.#settle(job, job.resolve, message);
        } else if (job.timer && isComing) {
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
                clearTimeout(job.writeTimer);
                job.isSettled = true;
                job.reject(this.#endError(job.name));
            }
        }
        this.#assemblers.clear();
        this.emit('end', {reason: this.#ended});
    }
}
