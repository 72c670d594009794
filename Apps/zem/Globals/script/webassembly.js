import { define } from './define.js';

/// The engine compiles on threads of its own, which the host knows nothing of: it is told to wait.
export function keepAliveWhileCompiling(native, setTimeout) {
    const then = Promise.prototype.then;

    function wait(promise) {
        native.hold();
        // Let go of in a later turn: whoever waits for the promise has begun something else by then.
        const release = () => setTimeout(() => native.release());
        return Reflect.apply(then, promise, [
            (value) => {
                release();
                return value;
            },
            (error) => {
                release();
                throw error;
            },
        ]);
    }

    const { compile, instantiate } = WebAssembly;
    define(WebAssembly, {
        compile(...args) {
            return wait(Reflect.apply(compile, WebAssembly, args));
        },
        instantiate(...args) {
            return wait(Reflect.apply(instantiate, WebAssembly, args));
        },
    });
}
