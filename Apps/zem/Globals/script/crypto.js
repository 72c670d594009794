import 'core-js/stable/dom-exception';

import { define } from './define.js';

const integerArrays = [
    Int8Array, Uint8Array, Uint8ClampedArray, Int16Array, Uint16Array, Int32Array, Uint32Array,
    BigInt64Array, BigUint64Array,
];
const largest = 65536;

export function makeCrypto(native) {
    return define({}, {
        getRandomValues(array) {
            if (!integerArrays.some((type) => array instanceof type)) {
                throw new DOMException(
                    'crypto.getRandomValues: expected a typed array of integers', 'TypeMismatchError');
            }
            if (array.byteLength > largest) {
                throw new DOMException(
                    `crypto.getRandomValues: ${array.byteLength} bytes are more than ${largest}`,
                    'QuotaExceededError');
            }
            const bytes = new Uint8Array(array.buffer, array.byteOffset, array.byteLength);
            bytes.set(new Uint8Array(native.randomBytes(bytes.length)));
            return array;
        },
        randomUUID: () => native.randomUUID().toLowerCase(),
    });
}
