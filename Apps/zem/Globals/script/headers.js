// Headers. headers-polyfill, the package for it, drops values that are not strings, and fields that are
// not valid, without a word.

import { splitCookiesString } from 'set-cookie-parser';

import { needArguments, webClass } from './web-class.js';

const cookies = 'set-cookie';

/// The fields of a response, as the network adapter gives them: it has joined those of one name.
export let headersOfResponse;

function nameOf(name) {
    const text = `${name}`;
    if (!/^[\w!#$%&'*+.^`|~-]+$/.test(text)) throw new TypeError('Headers: the name of a field is not valid');
    return text.toLowerCase();
}

function valueOf(value) {
    const text = `${value}`.replace(/^[\t\n\r ]+|[\t\n\r ]+$/g, '');
    if (/[\0\r\n]/.test(text)) throw new TypeError('Headers: a value holds a line break or a NUL');
    if (/[^\0-\xff]/.test(text)) throw new TypeError('Headers: a value holds a character above U+00FF');
    return text;
}

function pairsOf(init) {
    if (typeof init !== 'object' && typeof init !== 'function' || init === null) {
        throw new TypeError('Headers: expected Headers, an array of pairs or an object');
    }
    if (init[Symbol.iterator] === undefined) return Reflect.ownKeys(init)
        .filter((name) => Object.getOwnPropertyDescriptor(init, name)?.enumerable)
        .map((name) => [name, init[name]]);
    return [...init].map((entry) => {
        const pair = [...entry];
        if (pair.length !== 2) throw new TypeError('Headers: expected pairs of a name and a value');
        return pair;
    });
}

export class Headers {
    // The values of each field, by its name in lower case.
    #fields = new Map();

    constructor(init = []) {
        for (const [name, value] of pairsOf(init)) this.append(name, value);
    }

    static {
        headersOfResponse = (fields) => {
            const headers = new Headers();
            for (const [name, value] of Object.entries(fields)) {
                const lower = name.toLowerCase();
                headers.#fields.set(lower, lower === cookies ? splitCookiesString(value) : [value]);
            }
            return headers;
        };
    }

    append(name, value) {
        needArguments(2, arguments.length, 'Headers.append');
        const field = nameOf(name);
        this.#fields.set(field, [...(this.#fields.get(field) ?? []), valueOf(value)]);
    }
    delete(name) {
        needArguments(1, arguments.length, 'Headers.delete');
        this.#fields.delete(nameOf(name));
    }
    get(name) {
        needArguments(1, arguments.length, 'Headers.get');
        return this.#fields.get(nameOf(name))?.join(', ') ?? null;
    }
    getSetCookie() {
        return [...this.#fields.get(cookies) ?? []];
    }
    has(name) {
        needArguments(1, arguments.length, 'Headers.has');
        return this.#fields.has(nameOf(name));
    }
    set(name, value) {
        needArguments(2, arguments.length, 'Headers.set');
        this.#fields.set(nameOf(name), [valueOf(value)]);
    }
    forEach(callback, self = undefined) {
        needArguments(1, arguments.length, 'Headers.forEach');
        for (const [name, value] of this) Reflect.apply(callback, self, [value, name, this]);
    }
    *entries() {
        for (const name of [...this.#fields.keys()].sort()) {
            const values = this.#fields.get(name);
            for (const value of name === cookies ? values : [values.join(', ')]) yield [name, value];
        }
    }
    *keys() {
        for (const [name] of this.entries()) yield name;
    }
    *values() {
        for (const [, value] of this.entries()) yield value;
    }
}

webClass(Headers, 'Headers');
Object.defineProperty(Headers.prototype, Symbol.iterator, {
    value: Headers.prototype.entries, writable: true, configurable: true, enumerable: false,
});
