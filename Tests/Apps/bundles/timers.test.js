import { done, equal, throws } from './check.js';

const order = [];
const note = (...words) => order.push(words.join(' '));

// Due at once, in the order in which they were started; a shorter delay before a longer one, whichever
// was started first; all of them after the script and its microtasks.
setTimeout(note, 1, 'second of 1 ms');
setTimeout(note, 0, 'first of 0 ms');
setTimeout(note, 1, 'third of 1 ms');
setTimeout(note);
Promise.resolve().then(() => note('microtask'));
// While this spins, all of them fall due.
const spun = performance.now() + 20;
while (performance.now() < spun);
note('script');

// Microtasks of one timer run before the next timer.
setTimeout(() => {
    note('a');
    Promise.resolve().then(() => note('microtask of a'));
}, 5);
setTimeout(() => note('b'), 5);

// A timer that another one stops does not fire, though it is due.
let stopped;
setTimeout(() => clearTimeout(stopped), 5);
stopped = setTimeout(note, 5, 'never');

const repeated = setInterval((step) => {
    note('repeated', step);
    if (order.filter((word) => word === 'repeated by').length === 3) {
        clearInterval(repeated);
        setTimeout(nested, 0, 3);
    }
}, 1, 'by');

function nested(depth) {
    note('nested', depth);
    if (depth > 0) setTimeout(nested, 0, depth - 1);
    else setTimeout(finish, 1);
}

function finish() {
    // The interval runs beside the rest; what the rest does among itself is settled.
    equal(order.filter((word) => !word.startsWith('repeated')), [
        'script', 'microtask', 'first of 0 ms', '', 'second of 1 ms', 'third of 1 ms', 'a',
        'microtask of a', 'b', 'nested 3', 'nested 2', 'nested 1', 'nested 0',
    ]);
    equal(order.filter((word) => word.startsWith('repeated')), ['repeated by', 'repeated by', 'repeated by']);
    done();
}

const begun = performance.now();
setTimeout(() => equal(performance.now() - begun >= 30, true), 30);

equal(typeof setTimeout(() => {}), 'number');
const self = setInterval(function () {
    equal(this, globalThis);
    clearTimeout(self);
}, 0);

// Delays are 32-bit integers, and none is negative: all of these are due at once.
for (const delay of [-5, NaN, Infinity, undefined, null, '0', 2 ** 32, 0.9]) {
    const id = setTimeout(() => {}, delay);
    equal(id > 0, true);
}
for (const nothing of [undefined, null, 0, -1, 12345678, 'x', {}]) {
    equal(clearTimeout(nothing), undefined);
    equal(clearInterval(nothing), undefined);
}
for (const noFunction of [undefined, 'note()', {}, 3]) {
    throws(() => setTimeout(noFunction), 'TypeError', 'setTimeout: the callback is not a function');
    throws(() => setInterval(noFunction, 1), 'TypeError', 'setInterval: the callback is not a function');
}
