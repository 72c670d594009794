import { done, equal, throws } from './check.js';

const order = [];
setTimeout(() => {
    equal(order, ['script', 'first', 'promise', 'second', 'nested']);
    done();
});
queueMicrotask(() => {
    order.push('first');
    queueMicrotask(() => order.push('nested'));
});
Promise.resolve().then(() => order.push('promise'));
equal(queueMicrotask(() => order.push('second')), undefined);
order.push('script');
throws(() => queueMicrotask('order.push(1)'), 'TypeError', 'queueMicrotask: the callback is not a function');
throws(() => queueMicrotask(), 'TypeError', 'queueMicrotask: the callback is not a function');
