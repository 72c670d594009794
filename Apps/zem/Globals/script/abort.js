// AbortController and AbortSignal. The packages for them (abort-controller, abortcontroller-polyfill) make
// signals that are no EventTargets of ours, or dispatch events that are no Events, or know no reason.

import { defineHandler, Event, EventTarget } from './events.js';
import { needArguments, webClass } from './web-class.js';

const making = Symbol('making');
// A timer holds no more. A longer time does not end while anything runs.
const longestDelay = 2 ** 31 - 1;

let abort;
let startAlarm;
/// whenAborted(signal, action): calls it once, before the listeners, when the signal is aborted; what it
/// returns takes that back.
export let whenAborted;

/// `start(action, delay)` starts a timer that does not keep the run from ending.
export function setAlarm(start) {
    startAlarm = start;
}

export class AbortSignal extends EventTarget {
    #isAborted = false;
    #reason;
    #actions = new Set();
    // A signal that `any` has made of this one lives as long as this one: somebody may listen to it.
    #dependents = new Set();
    #sources = new Set();

    constructor() {
        if (arguments[0] !== making) throw new TypeError('Illegal constructor');
        super();
    }

    static {
        abort = (signal, reason) => {
            if (signal.#isAborted) return;
            const aborted = [signal, ...[...signal.#dependents].filter((dependent) => !dependent.#isAborted)];
            for (const one of aborted) one.#set(reason);
            for (const one of aborted) one.#tell();
        };
        whenAborted = (signal, action) => {
            signal.#actions.add(action);
            return () => signal.#actions.delete(action);
        };
    }

    static abort(reason = new DOMException('The operation was aborted', 'AbortError')) {
        const signal = new AbortSignal(making);
        signal.#set(reason);
        return signal;
    }

    static timeout(milliseconds) {
        needArguments(1, arguments.length, 'AbortSignal.timeout');
        const delay = Math.trunc(Number(milliseconds));
        if (!(delay >= 0 && delay <= Number.MAX_SAFE_INTEGER)) {
            throw new TypeError('AbortSignal.timeout: expected a number of milliseconds');
        }
        const signal = new AbortSignal(making);
        startAlarm(
            () => abort(signal, new DOMException('The operation timed out', 'TimeoutError')),
            Math.min(delay, longestDelay));
        return signal;
    }

    static any(signals) {
        needArguments(1, arguments.length, 'AbortSignal.any');
        const given = [...signals];
        if (!given.every((signal) => signal instanceof AbortSignal)) {
            throw new TypeError('AbortSignal.any: expected AbortSignals');
        }
        const aborted = given.find((signal) => signal.#isAborted);
        if (aborted !== undefined) return AbortSignal.abort(aborted.#reason);
        const signal = new AbortSignal(making);
        for (const one of given) {
            const sources = one.#sources.size > 0 ? one.#sources : [one];
            for (const source of sources) {
                signal.#sources.add(source);
                source.#dependents.add(signal);
            }
        }
        return signal;
    }

    get aborted() {
        return this.#isAborted;
    }
    get reason() {
        return this.#reason;
    }
    throwIfAborted() {
        if (this.#isAborted) throw this.#reason;
    }

    #set(reason) {
        this.#isAborted = true;
        this.#reason = reason;
        for (const source of this.#sources) source.#dependents.delete(this);
        this.#sources.clear();
    }

    #tell() {
        this.#dependents.clear();
        for (const action of this.#actions) action();
        this.#actions.clear();
        this.dispatchEvent(new Event('abort'));
    }
}

export class AbortController {
    #signal = new AbortSignal(making);

    get signal() {
        return this.#signal;
    }
    abort(reason = new DOMException('The operation was aborted', 'AbortError')) {
        abort(this.#signal, reason);
    }
}

defineHandler(AbortSignal, 'abort');
webClass(AbortSignal, 'AbortSignal');
webClass(AbortController, 'AbortController');
