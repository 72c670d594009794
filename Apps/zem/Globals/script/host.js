import { define } from './define.js';

export function makeHost(native) {
    return define({}, {
        args: Object.freeze(native.arguments),
        exit(code = 0) {
            if (!Number.isInteger(code) || code < 0 || code > 255) {
                throw new RangeError('host.exit: the code is an integer from 0 to 255');
            }
            native.exit(code);
        },
    });
}

export function makeQueueMicrotask(native) {
    const ready = Promise.resolve();
    const then = Promise.prototype.then;
    return function queueMicrotask(callback) {
        if (typeof callback !== 'function') {
            throw new TypeError('queueMicrotask: the callback is not a function');
        }
        // An exception of the callback is an uncaught one, and not a promise's rejection.
        Reflect.apply(then, ready, [
            () => {
                try {
                    callback();
                } catch (error) {
                    native.fail(error);
                        }
            },
        ]);
    };
}
