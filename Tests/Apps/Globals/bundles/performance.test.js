import { done, equal } from './check.js';

const first = performance.now();
equal(typeof first, 'number');
equal(first > 0, true);
const second = performance.now();
equal(second >= first, true);
// Fractions of milliseconds are told.
let third = performance.now();
while (Number.isInteger(third)) third = performance.now();
equal(third > second, true);
// The two clocks tell the same time, however much of it passes between the questions.
const before = Date.now();
const told = performance.timeOrigin + performance.now();
equal(told > before - 1000 && told < Date.now() + 1000, true);
done();
