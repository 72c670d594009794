import { done, equal, throws } from './check.js';

const order = [];
const note = (...words) => order.push(words.join(' '));
const taken = () => order.splice(0);
const spinFor = (milliseconds) => {
    const end = performance.now() + milliseconds;
    while (performance.now() < end);
};

// Those of one delay fire in the order in which they were started, after the script and its microtasks,
// even when all are due long before they can.
setTimeout(note, 1, 'first', 'of 1 ms');
setTimeout(note, 1, 'second of 1 ms');
setTimeout(() => {
    note('third of 1 ms');
    Promise.resolve().then(() => note('microtask of the third'));
}, 1);
setTimeout(() => note('fourth of 1 ms'), 1);
Promise.resolve().then(() => note('microtask'));
spinFor(20);
note('script');
setTimeout(stopping, 1);

// A timer that another one stops does not fire, though it is due.
function stopping() {
    equal(taken(), ['script', 'microtask', 'first of 1 ms', 'second of 1 ms', 'third of 1 ms',
        'microtask of the third', 'fourth of 1 ms']);
    let stopped;
    setTimeout(() => {
        note('stops the next');
        clearTimeout(stopped);
    }, 1);
    stopped = setTimeout(note, 1, 'never');
    setTimeout(passing, 1);
    spinFor(20);
}

// A short delay does not wait for a long one that was started before.
function passing() {
    equal(taken(), ['stops the next']);
    const long = setTimeout(note, 1000000, 'never');
    setTimeout(() => {
        clearTimeout(long);
        repeating();
    }, 0);
}

function repeating() {
    const repeated = setInterval((step) => {
        note('repeated', step);
        if (order.length < 3) return;
        clearInterval(repeated);
        equal(taken(), ['repeated by', 'repeated by', 'repeated by']);
        nested(3);
    }, 1, 'by');
}

function nested(depth) {
    note('nested', depth);
    if (depth > 0) setTimeout(nested, 0, depth - 1);
    else setTimeout(ownInterval, 1);
}

// An interval may stop itself before its first call has returned.
function ownInterval() {
    equal(taken(), ['nested 3', 'nested 2', 'nested 1', 'nested 0']);
    const self = setInterval(function () {
        note('once');
        equal(this, globalThis);
        clearTimeout(self);
        setTimeout(delays, 5);
    });
}

// Delays are 32-bit integers, and none is negative: all of these are due at once, in their order.
function delays() {
    equal(taken(), ['once']);
    const odd = [-5, NaN, Infinity, undefined, null, '0', 2 ** 32, 0.9, -(2 ** 31), 2 ** 31];
    for (const delay of odd) setTimeout(note, delay, String(delay));
    setTimeout(() => {
        equal(taken(), odd.map(String));
        elapsing();
    });
}

function elapsing() {
    const begun = performance.now();
    setTimeout(() => {
        equal(performance.now() - begun >= 30, true);
        done();
    }, 30);
}

equal(typeof setTimeout(() => {}), 'number');
for (const nothing of [undefined, null, 0, -1, 12345678, 'x', {}]) {
    equal(clearTimeout(nothing), undefined);
    equal(clearInterval(nothing), undefined);
}
for (const noFunction of [undefined, 'note()', {}, 3]) {
    throws(() => setTimeout(noFunction), 'TypeError', 'setTimeout: the callback is not a function');
    throws(() => setInterval(noFunction, 1), 'TypeError', 'setInterval: the callback is not a function');
}
