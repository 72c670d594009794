import { classes, done, equal, throws, turn } from './check.js';

classes({ AbortController: 0, AbortSignal: 0 });
equal([AbortSignal.abort.length, AbortSignal.timeout.length, AbortSignal.any.length], [0, 1, 1]);
throws(() => new AbortSignal(), 'TypeError', 'Illegal constructor');

const order = [];
const taken = () => order.splice(0);

const controller = new AbortController();
const { signal } = controller;
equal([signal instanceof AbortSignal, signal instanceof EventTarget, signal === controller.signal, signal.aborted,
    signal.reason, signal.onabort], [true, true, true, false, undefined, null]);
signal.throwIfAborted();
signal.addEventListener('abort', (event) => order.push(`first ${event.type} ${event.target === signal} ${signal.aborted}`));
signal.onabort = () => order.push('replaced');
signal.onabort = function () {
    order.push(`attribute ${this === signal}`);
};
signal.addEventListener('abort', () => order.push('last'));
controller.abort();
controller.abort('again');
equal(taken(), ['first abort true true', 'attribute true', 'last']);
equal([signal.aborted, signal.reason instanceof DOMException, signal.reason.name, signal.reason.message,
    signal.reason.code], [true, true, 'AbortError', 'The operation was aborted', 20]);
equal(throws(() => signal.throwIfAborted(), 'AbortError', 'The operation was aborted') === signal.reason, true);
signal.onabort = null;
signal.onabort = 5;
equal(signal.onabort, null);

for (const reason of ['text', 0, null, new Error('own')]) {
    const other = new AbortController();
    other.abort(reason);
    equal(other.signal.reason, reason);
    equal([AbortSignal.abort(reason).aborted, AbortSignal.abort(reason).reason], [true, reason]);
}
equal([AbortSignal.abort().aborted, AbortSignal.abort().reason.name], [true, 'AbortError']);

// `any` takes the reason of the first signal that aborts. A signal made of others aborts after them.
const one = new AbortController();
const two = new AbortController();
const either = AbortSignal.any([one.signal, two.signal]);
const nested = AbortSignal.any([either]);
const mixed = AbortSignal.any([nested, AbortSignal.any([])]);
either.onabort = () => order.push(`either ${nested.aborted} ${mixed.aborted}`);
nested.onabort = () => order.push('nested');
mixed.onabort = () => order.push('mixed');
two.signal.onabort = () => order.push(`two ${either.aborted} ${nested.aborted}`);
equal([either.aborted, either.reason], [false, undefined]);
two.abort('second');
one.abort('first');
equal(taken(), ['two true true', 'either true true', 'nested', 'mixed']);
equal([either.reason, nested.reason, mixed.reason], ['second', 'second', 'second']);
equal(AbortSignal.any([new AbortController().signal, two.signal, one.signal]).reason, 'second');
equal(AbortSignal.any([]).aborted, false);
throws(() => AbortSignal.any([{}]), 'TypeError', 'AbortSignal.any: expected AbortSignals');

for (const wrong of [-1, NaN, Infinity, 'x', undefined, 2 ** 53]) {
    throws(() => AbortSignal.timeout(wrong), 'TypeError', 'AbortSignal.timeout: expected a number of milliseconds');
}
// Too long for a timer: it does not come early. The run does not wait for it.
const never = AbortSignal.timeout(2 ** 33);
const soon = AbortSignal.timeout(5);
const late = AbortSignal.timeout(30);
const both = AbortSignal.any([late, soon]);
equal([soon.aborted, both.aborted], [false, false]);
soon.onabort = () => order.push('soon');
late.onabort = () => order.push('late');
// Only this timer keeps the run going.
const waiting = setInterval(async () => {
    if (!late.aborted) return;
    clearInterval(waiting);
    await turn();
    equal(taken(), ['soon', 'late']);
    equal([soon.reason instanceof DOMException, soon.reason.name, soon.reason.message, soon.reason.code],
        [true, 'TimeoutError', 'The operation timed out', 23]);
    equal([both.reason === soon.reason, never.aborted], [true, false]);
    done();
}, 1);
