import { done, equal, throws } from './check.js';

const uuid = crypto.randomUUID();
equal(/^[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$/.test(uuid), true);
equal(crypto.randomUUID() === uuid, false);

// That 64 random bytes are all zero will not be seen.
const filled = (array) => crypto.getRandomValues(array) === array && array.some((value) => value != 0);
for (const type of [Int8Array, Uint8Array, Uint8ClampedArray, Int16Array, Uint16Array, Int32Array, Uint32Array,
    BigInt64Array, BigUint64Array]) {
    equal(filled(new type(64)), true);
}
equal(crypto.getRandomValues(new Uint8Array(0)).length, 0);

// Only the view's part of its buffer.
const whole = new Uint8Array(192);
equal(filled(new Uint16Array(whole.buffer, 64, 32)), true);
equal(whole.subarray(0, 64).every((value) => value === 0), true);
equal(whole.subarray(128).every((value) => value === 0), true);

// The last bytes are filled too: of 65536 random ones each value is among the last 8192.
const largest = crypto.getRandomValues(new Uint8Array(65536));
equal(new Set(largest.subarray(-8192)).size, 256);

const tooLarge = throws(() => crypto.getRandomValues(new Uint8Array(65537)), 'QuotaExceededError',
    'crypto.getRandomValues: 65537 bytes are more than 65536');
equal(tooLarge instanceof DOMException, true);
equal(tooLarge.code, 22);
throws(() => crypto.getRandomValues(new Uint16Array(32769)), 'QuotaExceededError',
    'crypto.getRandomValues: 65538 bytes are more than 65536');
for (const wrong of [new Float64Array(1), new Float32Array(1), new DataView(new ArrayBuffer(1)), new ArrayBuffer(1),
    [1], {}, undefined]) {
    throws(() => crypto.getRandomValues(wrong), 'TypeMismatchError',
        'crypto.getRandomValues: expected a typed array of integers');
}
done();
