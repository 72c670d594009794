import { done, equal, throws } from './check.js';

const original = {
    text: 'a\0é😀', number: -0, none: null, nothing: undefined, flag: true, big: 10n ** 30n,
    date: new Date(5), list: [1, , { deep: 'x' }], map: new Map([['k', new Map([[1, 2]])]]), set: new Set(['s']),
    pattern: /x+/gi, bytes: new Uint8Array([1, 2, 3]), boxed: Object('b'),
};
const copy = structuredClone(original);
equal(copy === original, false);
equal(Object.keys(copy), Object.keys(original));
for (const name of ['text', 'number', 'none', 'nothing', 'flag', 'big']) equal(copy[name], original[name]);
equal([copy.date instanceof Date, copy.date.getTime()], [true, 5]);
equal([copy.list.length, 1 in copy.list, copy.list[2], copy.list[2] === original.list[2]],
    [3, false, { deep: 'x' }, false]);
equal([copy.map instanceof Map, copy.map.get('k').get(1)], [true, 2]);
equal([copy.set instanceof Set, copy.set.has('s'), copy.set.size], [true, true, 1]);
equal([copy.pattern instanceof RegExp, String(copy.pattern)], [true, '/x+/gi']);
equal([copy.bytes instanceof Uint8Array, [...copy.bytes], copy.bytes.buffer === original.bytes.buffer],
    [true, [1, 2, 3], false]);
equal([typeof copy.boxed, String(copy.boxed)], ['object', 'b']);

const circle = { name: 'circle', list: [] };
circle.self = circle;
circle.list.push(circle);
const circleCopy = structuredClone(circle);
equal([circleCopy.self === circleCopy, circleCopy.list[0] === circleCopy, circleCopy === circle], [true, true, false]);

const error = structuredClone(new RangeError('no', { cause: 'why' }));
equal([error instanceof RangeError, error.name, error.message, error.cause], [true, 'RangeError', 'no', 'why']);

class Point {
    x = 1;
}
equal(structuredClone(new Point()), { x: 1 });

const buffer = new ArrayBuffer(8);
const moved = structuredClone({ buffer }, { transfer: [buffer] });
equal([buffer.byteLength, moved.buffer.byteLength], [0, 8]);

for (const [wrong, kind] of [[() => {}, 'Function'], [Symbol('x'), 'Symbol'], [{ f() {} }, 'Function'],
    [new WeakMap(), 'WeakMap']]) {
    const failure = throws(() => structuredClone(wrong), 'DataCloneError', `Uncloneable type: ${kind}`);
    equal([failure instanceof DOMException, failure.code], [true, 25]);
}
done();
