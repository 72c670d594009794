// Blob. fetch-blob, the package for it and for File, reads a Blob inside a Blob by way of ReadableStream,
// which this engine does not have.

import { TextDecoder, TextEncoder } from '@exodus/bytes/encoding-lite.js';

import { optionsOf, webClass, wellFormed } from './web-class.js';

const encoder = new TextEncoder();

/// The bytes of a Blob, not to be changed: its slices share them.
export let bytesOfBlob;

function bytesOfPart(part, endings) {
    if (part instanceof Blob) return bytesOfBlob(part);
    if (ArrayBuffer.isView(part)) return new Uint8Array(part.buffer, part.byteOffset, part.byteLength);
    if (part instanceof ArrayBuffer) return new Uint8Array(part);
    const text = wellFormed(part);
    return encoder.encode(endings === 'native' ? text.replace(/\r\n?/g, '\n') : text);
}

function joined(parts) {
    const bytes = new Uint8Array(parts.reduce((size, part) => size + part.length, 0));
    let end = 0;
    for (const part of parts) {
        bytes.set(part, end);
        end += part.length;
    }
    return bytes;
}

function typeOf(type) {
    const text = `${type}`;
    return /^[\x20-\x7e]*$/.test(text) ? text.toLowerCase() : '';
}

export class Blob {
    #bytes;
    #type;

    constructor(parts = [], options = {}) {
        const { type = '', endings = 'transparent' } = optionsOf(options, 'Blob');
        if (typeof parts !== 'object' || typeof parts?.[Symbol.iterator] !== 'function') {
            throw new TypeError('Blob: expected an array of parts');
        }
        if (endings !== 'transparent' && endings !== 'native') {
            throw new TypeError('Blob: endings are transparent or native');
        }
        this.#bytes = joined([...parts].map((part) => bytesOfPart(part, endings)));
        this.#type = typeOf(type);
    }

    static {
        bytesOfBlob = (blob) => blob.#bytes;
    }

    get size() {
        return this.#bytes.length;
    }
    get type() {
        return this.#type;
    }
    slice(start = 0, end = this.size, type = '') {
        const blob = new Blob();
        blob.#bytes = this.#bytes.subarray(start, end);
        blob.#type = typeOf(type);
        return blob;
    }
    async text() {
        return new TextDecoder().decode(this.#bytes);
    }
    async arrayBuffer() {
        return this.#bytes.slice().buffer;
    }
    async bytes() {
        return this.#bytes.slice();
    }
}

webClass(Blob, 'Blob');
export default Blob;
