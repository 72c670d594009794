// Event and EventTarget. event-target-shim, the one package for both, forgets an event's target after
// the dispatch, turns thrown values that are not errors into others, and takes any object for an event.

import { native } from './native.js';
import { needArguments, optionsOf, webClass, wellFormed } from './web-class.js';

const phases = { NONE: 0, CAPTURING_PHASE: 1, AT_TARGET: 2, BUBBLING_PHASE: 3 };
let stateOf;

export class Event {
    #state;

    constructor(type, options = {}) {
        needArguments(1, arguments.length, 'Event');
        const { bubbles, cancelable, composed } = optionsOf(options, 'Event');
        this.#state = {
            type: wellFormed(type),
            bubbles: Boolean(bubbles),
            cancelable: Boolean(cancelable),
            composed: Boolean(composed),
            timeStamp: native.now(),
            target: null,
            currentTarget: null,
            isDispatched: false,
            isPassive: false,
            isCanceled: false,
            stopsPropagation: false,
            stopsAtOnce: false,
        };
    }

    static {
        stateOf = (event) => {
            if (typeof event !== 'object' || event === null || !(#state in event)) {
                throw new TypeError('EventTarget.dispatchEvent: expected an Event');
            }
            return event.#state;
        };
    }

    get type() {
        return this.#state.type;
    }
    get target() {
        return this.#state.target;
    }
    get srcElement() {
        return this.#state.target;
    }
    get currentTarget() {
        return this.#state.currentTarget;
    }
    get eventPhase() {
        return this.#state.isDispatched ? phases.AT_TARGET : phases.NONE;
    }
    get bubbles() {
        return this.#state.bubbles;
    }
    get cancelable() {
        return this.#state.cancelable;
    }
    get composed() {
        return this.#state.composed;
    }
    get timeStamp() {
        return this.#state.timeStamp;
    }
    get isTrusted() {
        return false;
    }
    get defaultPrevented() {
        return this.#state.isCanceled;
    }
    get returnValue() {
        return !this.#state.isCanceled;
    }
    set returnValue(value) {
        if (!value) this.preventDefault();
    }
    get cancelBubble() {
        return this.#state.stopsPropagation;
    }
    set cancelBubble(value) {
        if (value) this.#state.stopsPropagation = true;
    }
    composedPath() {
        return this.#state.isDispatched ? [this.#state.currentTarget] : [];
    }
    preventDefault() {
        if (this.#state.cancelable && !this.#state.isPassive) this.#state.isCanceled = true;
    }
    stopPropagation() {
        this.#state.stopsPropagation = true;
    }
    stopImmediatePropagation() {
        this.#state.stopsPropagation = true;
        this.#state.stopsAtOnce = true;
    }
}

function call(listener, target, event) {
    const { callback } = listener;
    try {
        if (typeof callback === 'function') Reflect.apply(callback, target, [event]);
        else callback.handleEvent(event);
    } catch (error) {
        native.fail(error);
    }
}

/// There is no tree of targets: an event is at its target, and nowhere else.
export class EventTarget {
    // By type. A list is replaced, and never changed: a dispatch goes through the one that it has begun with.
    #listeners = new Map();

    addEventListener(type, callback, options = false) {
        needArguments(2, arguments.length, 'EventTarget.addEventListener');
        const { name, capture, more } = EventTarget.#read('addEventListener', type, callback, options);
        const { once, passive, signal } = more;
        if (signal !== undefined && !(signal instanceof EventTarget && 'aborted' in signal)) {
            throw new TypeError('EventTarget.addEventListener: the signal is not an AbortSignal');
        }
        if (callback === null || callback === undefined || signal?.aborted) return;
        if (this.#find(name, callback, capture) !== undefined) return;
        const listener = { callback, capture, once: Boolean(once), passive: Boolean(passive), isRemoved: false };
        this.#listeners.set(name, [...(this.#listeners.get(name) ?? []), listener]);
        if (signal !== undefined) {
            signal.addEventListener('abort', () => this.#remove(name, listener), { once: true });
        }
    }

    removeEventListener(type, callback, options = false) {
        needArguments(2, arguments.length, 'EventTarget.removeEventListener');
        const { name, capture } = EventTarget.#read('removeEventListener', type, callback, options);
        const listener = this.#find(name, callback, capture);
        if (listener !== undefined) this.#remove(name, listener);
    }

    dispatchEvent(event) {
        needArguments(1, arguments.length, 'EventTarget.dispatchEvent');
        const state = stateOf(event);
        if (state.isDispatched) {
            throw new DOMException('EventTarget.dispatchEvent: the event is being dispatched', 'InvalidStateError');
        }
        Object.assign(state, { isDispatched: true, target: this, currentTarget: this });
        this.#invoke(event, state, true);
        this.#invoke(event, state, false);
        Object.assign(state, {
            isDispatched: false, currentTarget: null, stopsPropagation: false, stopsAtOnce: false,
        });
        return !state.isCanceled;
    }

    static #read(place, type, callback, options) {
        if (callback !== undefined && typeof callback !== 'function' && typeof callback !== 'object') {
            throw new TypeError(`EventTarget.${place}: the listener is neither a function nor an object`);
        }
        const more = typeof options === 'object' && options !== null ? options : { capture: options };
        return { name: wellFormed(type), capture: Boolean(more.capture), more };
    }

    #find(type, callback, capture) {
        return this.#listeners.get(type)
            ?.find((listener) => listener.callback === callback && listener.capture === capture);
    }

    #remove(type, listener) {
        listener.isRemoved = true;
        const others = (this.#listeners.get(type) ?? []).filter((other) => other !== listener);
        if (others.length > 0) this.#listeners.set(type, others);
        else this.#listeners.delete(type);
    }

    #invoke(event, state, capture) {
        if (state.stopsPropagation) return;
        for (const listener of this.#listeners.get(state.type) ?? []) {
            if (listener.isRemoved || listener.capture !== capture) continue;
            if (listener.once) this.#remove(state.type, listener);
            state.isPassive = listener.passive;
            call(listener, this, event);
            state.isPassive = false;
            if (state.stopsAtOnce) return;
        }
    }
}

/// Defines `on` + type, the listener that is a property. Like any other it is called in the order in
/// which the listeners were added; setting another one keeps its place. `whenSet` is told the target.
export function defineHandler(target, type, whenSet = () => {}) {
    const handlers = new WeakMap();
    Object.defineProperty(target.prototype, `on${type}`, {
        get() {
            return handlers.get(this)?.callback ?? null;
        },
        set(value) {
            const callback = typeof value === 'function' ? value : null;
            const handler = handlers.get(this);
            if (handler !== undefined && callback !== null) {
                handler.callback = callback;
            } else if (handler !== undefined) {
                this.removeEventListener(type, handler.listener);
                handlers.delete(this);
            } else if (callback !== null) {
                const made = { callback };
                made.listener = function (event) {
                    Reflect.apply(made.callback, this, [event]);
                };
                handlers.set(this, made);
                this.addEventListener(type, made.listener);
            }
            whenSet(this);
        },
        configurable: true,
        enumerable: true,
    });
}

export class CustomEvent extends Event {
    #detail;

    constructor(type, options = {}) {
        needArguments(1, arguments.length, 'CustomEvent');
        super(type, options);
        this.#detail = options?.detail ?? null;
    }

    get detail() {
        return this.#detail;
    }
}

export class MessageEvent extends Event {
    #init;

    constructor(type, options = {}) {
        needArguments(1, arguments.length, 'MessageEvent');
        super(type, options);
        const { data = null, origin = '', lastEventId = '', source = null, ports = [] } = optionsOf(options, 'MessageEvent');
        this.#init = {
            data, origin: wellFormed(origin), lastEventId: wellFormed(lastEventId), source,
            ports: Object.freeze([...ports]),
        };
    }

    get data() {
        return this.#init.data;
    }
    get origin() {
        return this.#init.origin;
    }
    get lastEventId() {
        return this.#init.lastEventId;
    }
    get source() {
        return this.#init.source;
    }
    get ports() {
        return this.#init.ports;
    }
}

webClass(Event, 'Event', phases);
webClass(EventTarget, 'EventTarget');
webClass(CustomEvent, 'CustomEvent');
webClass(MessageEvent, 'MessageEvent');
