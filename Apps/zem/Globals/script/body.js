// The common part of Request and Response. whatwg-fetch, the package for both and for fetch, is built on
// XMLHttpRequest and FileReader, which this engine does not have.

import { TextDecoder, TextEncoder } from '@exodus/bytes/encoding-lite.js';
import { FormData, formDataToBlob } from 'formdata-polyfill/esm.min.js';
import 'core-js/stable/url-search-params';

import { Blob, bytesOfBlob } from './blob.js';
import { wellFormed } from './web-class.js';

const URLSearchParams = globalThis.URLSearchParams;
const decoder = new TextDecoder('utf-8', { ignoreBOM: true });
const encoder = new TextEncoder();

/// A content is null, or one of these, with `type`, the Content-Type that it asks for:
///   text    a string
///   bytes   a Uint8Array that nobody changes
///   parts   the strings and Blobs of a multipart form with files, and `form`, its [name, value] pairs

// The content of a Request or Response, and whether it was read.
const bodies = new WeakMap();

class Multipart {
    constructor(parts, { type }) {
        Object.assign(this, { parts, type });
    }
}

/// The content that a body stands for.
export function contentOf(body) {
    if (body === undefined || body === null) return null;
    if (body instanceof URLSearchParams) {
        return { text: `${body}`, type: 'application/x-www-form-urlencoded;charset=UTF-8' };
    }
    if (body instanceof Blob) return { bytes: bytesOfBlob(body), type: body.type };
    if (body instanceof ArrayBuffer) return { bytes: new Uint8Array(body.slice(0)), type: '' };
    if (ArrayBuffer.isView(body)) {
        return { bytes: new Uint8Array(body.buffer, body.byteOffset, body.byteLength).slice(), type: '' };
    }
    if (body instanceof FormData) {
        const { parts, type } = formDataToBlob(body, Multipart);
        return parts.every((part) => typeof part === 'string')
            ? { text: wellFormed(parts.join('')), type }
            : { parts, form: [...body], type };
    }
    if (typeof body.getReader === 'function') throw new TypeError('a stream cannot be a body here');
    return { text: wellFormed(body), type: 'text/plain;charset=UTF-8' };
}

function bytesOf(content) {
    if (content === null) return new Uint8Array();
    if (content.text !== undefined) return encoder.encode(content.text);
    if (content.bytes !== undefined) return content.bytes;
    return bytesOfBlob(new Blob(content.parts));
}

/// The text that the content is, or undefined if its bytes are none.
export function textOf(content) {
    if (content.text !== undefined) return content.text;
    const bytes = bytesOf(content);
    try {
        return new TextDecoder('utf-8', { fatal: true, ignoreBOM: true }).decode(bytes);
    } catch {
        return undefined;
    }
}

/// Gives an object a content. Headers that have no Content-Type get that of the content.
export function setContent(owner, content, headers) {
    bodies.set(owner, { content, isUsed: false });
    if (content !== null && content.type !== '' && !headers.has('content-type')) {
        headers.set('content-type', content.type);
    }
}

/// Throws if it was taken before, or read.
export function takeContent(owner) {
    const body = bodies.get(owner);
    if (body.isUsed) throw new TypeError('the body has been read already');
    body.isUsed = body.content !== null;
    return body.content;
}

/// The content, which stays.
export function copyContent(owner) {
    const { content, isUsed } = bodies.get(owner);
    if (isUsed) throw new TypeError('the body has been read already');
    return content;
}

function formOf(content, type) {
    const form = new FormData();
    if (content?.form !== undefined) {
        for (const [name, value] of content.form) form.append(name, value);
    } else if (/^application\/x-www-form-urlencoded(;|$)/i.test(type)) {
        for (const [name, value] of new URLSearchParams(decoder.decode(bytesOf(content)))) form.append(name, value);
    } else {
        throw new TypeError('formData: expected an urlencoded form, or a FormData that was not sent yet');
    }
    return form;
}

function plainText(content) {
    const text = content?.text ?? decoder.decode(bytesOf(content));
    return text.startsWith('\ufeff') ? text.slice(1) : text;
}

/// Gives a class the methods that read a body.
export function readsBody(made) {
    Object.defineProperties(made.prototype, Object.getOwnPropertyDescriptors({
        // A content is here as a whole or not at all, and the engine has no ReadableStream: libraries that
        // find none read the body by its methods.
        get body() {
            return null;
        },
        get bodyUsed() {
            return bodies.get(this).isUsed;
        },
        async text() {
            return plainText(takeContent(this));
        },
        async json() {
            return JSON.parse(plainText(takeContent(this)));
        },
        async arrayBuffer() {
            return bytesOf(takeContent(this)).slice().buffer;
        },
        async bytes() {
            return bytesOf(takeContent(this)).slice();
        },
        async blob() {
            return new Blob([bytesOf(takeContent(this))], { type: this.headers.get('content-type') ?? '' });
        },
        async formData() {
            return formOf(takeContent(this), this.headers.get('content-type') ?? '');
        },
    }));
}
