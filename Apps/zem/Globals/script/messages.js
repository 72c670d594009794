// MessageChannel. The packages for it (message-port-polyfill and its like) neither copy messages nor
// transfer ports.

import 'core-js/stable/structured-clone';

import { defineHandler, Event, EventTarget, MessageEvent } from './events.js';
import { needArguments, optionsOf, webClass } from './web-class.js';

const structuredClone = globalThis.structuredClone;
const making = Symbol('making');
let later;
let entangle;

/// `start(task)` runs it in a turn of its own, later, and in the order of the calls.
export function setLater(start) {
    later = start;
}

/// Both ends of a channel live in one context. So a port keeps no run from ending: a message that is on
/// its way does, and none can come when nothing else is left to do.
export class MessagePort extends EventTarget {
    #other = null;
    #messages = [];
    #isStarted = false;
    #isDetached = false;
    // The port that the cloning package finds as this one's clone, while it takes this one for a Blob.
    #successor = null;

    constructor() {
        if (arguments[0] !== making) throw new TypeError('Illegal constructor');
        super();
    }

    static {
        entangle = (one, other) => {
            one.#other = other;
            other.#other = one;
        };
    }

    postMessage(message, options = {}) {
        needArguments(1, arguments.length, 'MessagePort.postMessage');
        const given = optionsOf(options, 'MessagePort.postMessage');
        const transfer = [...Symbol.iterator in given ? given : given.transfer ?? []];
        const ports = this.#portsOf(transfer);
        const data = MessagePort.#clone(message, transfer.filter((value) => !ports.includes(value)), ports);
        const successors = ports.map((port) => port.#handOver());
        const other = this.#other;
        if (other === null || ports.includes(other)) return;
        other.#messages.push({ data, ports: successors });
        if (other.#isStarted) other.#deliverLater();
    }

    start() {
        if (this.#isStarted || this.#isDetached) return;
        this.#isStarted = true;
        for (let count = this.#messages.length; count > 0; count -= 1) this.#deliverLater();
    }

    close() {
        const other = this.#other;
        this.#messages = [];
        this.#isDetached = true;
        this.#other = null;
        if (other === null) return;
        other.#other = null;
        later(() => other.dispatchEvent(new Event('close')));
    }

    get [Symbol.toStringTag]() {
        return #successor in this && this.#successor !== null ? 'Blob' : 'MessagePort';
    }

    #portsOf(transfer) {
        const ports = transfer.filter((value) => typeof value === 'object' && value !== null && #other in value);
        const refuse = (reason) => {
            throw new DOMException(`MessagePort.postMessage: ${reason}`, 'DataCloneError');
        };
        if (ports.includes(this)) refuse('a port cannot be sent through itself');
        if (new Set(ports).size < ports.length) refuse('a port is transferred twice');
        if (ports.some((port) => port.#isDetached)) refuse('a port is closed, or was transferred before');
        return ports;
    }

    /// The package cannot transfer ports, but it copies what bears the tag of a Blob by its `slice`.
    static #clone(message, transfer, ports) {
        for (const port of ports) {
            port.#successor = new MessagePort(making);
            Object.defineProperty(port, 'slice', { value: () => port.#successor, configurable: true });
        }
        try {
            return structuredClone(message, { transfer });
        } catch (error) {
            for (const port of ports) port.#successor = null;
            throw error;
        } finally {
            for (const port of ports) delete port.slice;
        }
    }

    #handOver() {
        const successor = this.#successor;
        this.#successor = null;
        successor.#messages = this.#messages;
        if (this.#other !== null) entangle(successor, this.#other);
        this.#messages = [];
        this.#other = null;
        this.#isDetached = true;
        return successor;
    }

    #deliverLater() {
        later(() => {
            // None is left if the port was closed or handed over in between.
            const message = this.#messages.shift();
            if (message !== undefined) this.dispatchEvent(new MessageEvent('message', message));
        });
    }
}

export class MessageChannel {
    #port1 = new MessagePort(making);
    #port2 = new MessagePort(making);

    constructor() {
        entangle(this.#port1, this.#port2);
    }

    get port1() {
        return this.#port1;
    }
    get port2() {
        return this.#port2;
    }
}

defineHandler(MessagePort, 'message', (port) => port.start());
defineHandler(MessagePort, 'messageerror');
defineHandler(MessagePort, 'close');
webClass(MessagePort, 'MessagePort');
webClass(MessageChannel, 'MessageChannel');
