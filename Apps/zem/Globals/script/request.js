import { AbortController, AbortSignal } from './abort.js';
import { resolve } from './address.js';
import { contentOf, copyContent, readsBody, setContent, takeContent } from './body.js';
import { Headers } from './headers.js';
import { needArguments, optionsOf, webClass } from './web-class.js';

const methods = ['GET', 'PUT', 'POST', 'PATCH', 'DELETE', 'HEAD', 'OPTIONS'];

const defaults = {
    mode: 'cors', credentials: 'same-origin', cache: 'default', redirect: 'follow', referrer: 'about:client',
    referrerPolicy: '', integrity: '', keepalive: false, priority: 'auto',
};

/// "high", "low" or "auto". The web platform does not show it.
export let priorityOf;

function methodOf(method) {
    const text = `${method}`;
    // As everywhere on the web, "patch" is not "PATCH".
    const upper = text.toUpperCase();
    const found = upper === 'PATCH' ? text : upper;
    if (!methods.includes(found)) {
        throw new TypeError(`Request: expected a method of ${methods.join(', ')}`);
    }
    return found;
}

export class Request {
    #url;
    #method;
    #headers;
    #signal;
    #settings;

    constructor(input, options = {}) {
        needArguments(1, arguments.length, 'Request');
        const init = optionsOf(options, 'Request');
        const from = input instanceof Request ? input : undefined;
        this.#url = from === undefined ? resolve(`${input}`, 'Request') : from.#url;
        this.#method = init.method === undefined ? from?.#method ?? 'GET' : methodOf(init.method);
        this.#headers = new Headers(init.headers ?? from?.headers);
        const signal = init.signal === undefined ? from?.#signal : init.signal;
        if (signal !== undefined && signal !== null && !(signal instanceof AbortSignal)) {
            throw new TypeError('Request: the signal is not an AbortSignal');
        }
        this.#signal = signal ?? new AbortController().signal;
        this.#settings = {};
        for (const [name, value] of Object.entries(defaults)) {
            this.#settings[name] = init[name] ?? from?.#settings[name] ?? value;
        }
        const content = init instanceof Request ? takeContent(init) : contentOf(init.body);
        const isBare = this.#method === 'GET' || this.#method === 'HEAD';
        if (isBare && (content !== null || from !== undefined && copyContent(from) !== null)) {
            throw new TypeError(`Request: a request with the method ${this.#method} has no body`);
        }
        setContent(this, content ?? (from === undefined ? null : takeContent(from)), this.#headers);
    }

    static {
        priorityOf = (request) => request.#settings.priority;
    }

    get url() {
        return this.#url.href;
    }
    get method() {
        return this.#method;
    }
    get headers() {
        return this.#headers;
    }
    get signal() {
        return this.#signal;
    }
    get mode() {
        return this.#settings.mode;
    }
    get credentials() {
        return this.#settings.credentials;
    }
    get cache() {
        return this.#settings.cache;
    }
    get redirect() {
        return this.#settings.redirect;
    }
    get referrer() {
        return this.#settings.referrer;
    }
    get referrerPolicy() {
        return this.#settings.referrerPolicy;
    }
    get integrity() {
        return this.#settings.integrity;
    }
    get keepalive() {
        return this.#settings.keepalive;
    }
    get destination() {
        return '';
    }
    get duplex() {
        return 'half';
    }
    clone() {
        const content = copyContent(this);
        const request = new Request(this.#url.href, {
            ...this.#settings, method: this.#method, headers: this.#headers, signal: this.#signal,
        });
        setContent(request, content, request.headers);
        return request;
    }
}

readsBody(Request);
webClass(Request, 'Request');
