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
equal(Math.abs(performance.timeOrigin + performance.now() - Date.now()) < 1000, true);
done();
