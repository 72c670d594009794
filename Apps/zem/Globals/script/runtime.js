/// The name of a value that is no object, in an error text.
function kindOf(value) {
    if (value === undefined || value === null) return String(value);
    return typeof value === 'bigint' ? 'a BigInt' : `a ${typeof value}`;
}

/// How the host learns of `globalThis.runtime`, which the bundle sets at once or later, to an object that
/// holds `dataService`, `draftManager` and `draftQueue`, or some of them, or to a promise of one. Nobody is asked again and again: the property has a setter
/// until the bundle uses it. `globalThis.runtime = ...` calls it, and so does a script's plain
/// `var runtime = ...`, which finds the property and makes no other. What replaces the property instead
/// (a function of that name, Object.defineProperty) is found by `look`, after the bundle's last line.
///
/// An object is looked at when the script at hand is over, as a promise of it would be: what is set may be
/// filled meanwhile. Of several, the last one counts until one could be used.
export function makeRuntimeWatch(native, inspect) {
    const resolve = Promise.resolve;
    const then = Promise.prototype.then;
    let current;

    function fail(why) {
        return native.runtimeFailed(why);
    }

    /// The part of that name, or a text that says why it cannot be used.
    function partOf(runtime, name) {
        const place = `globalThis.runtime.${name}`;
        let part;
        try {
            part = runtime[name];
        } catch (error) {
            return `reading ${place} threw: ${inspect(error)}`;
        }
        return Object(part) === part ? part : `${place}: expected an object, found ${kindOf(part)}`;
    }

    function arrived(runtime) {
        if (Object(runtime) !== runtime) {
            fail(`globalThis.runtime: expected an object, found ${kindOf(runtime)}`);
            return;
        }
        native.runtimeArrived(
            partOf(runtime, 'dataService'),
            partOf(runtime, 'draftManager'),
            partOf(runtime, 'draftQueue'));
    }

    function take(value) {
        current = value;
        if (value === undefined || value === null) return;
        native.runtimePromised();
        Reflect.apply(then, Reflect.apply(resolve, Promise, [value]), [
            (runtime) => {
                if (current === value) arrived(runtime);
            },
            (error) => {
                const isHeard = current === value
                    && fail(`the promise in globalThis.runtime was rejected: ${inspect(error)}`);
                // Otherwise it is a rejection that nobody has handled, like any other.
                if (!isHeard) throw error;
            },
        ]);
    }

    function look() {
        let value;
        try {
            value = globalThis.runtime;
        } catch (error) {
            fail(`reading globalThis.runtime threw: ${inspect(error)}`);
            return;
        }
        if (value !== current) take(value);
    }

    function watch() {
        const before = globalThis.runtime;
        Object.defineProperty(globalThis, 'runtime', {
            get: () => current,
            set: take,
            configurable: true,
            enumerable: false,
        });
        if (before !== undefined) take(before);
    }

    return { watchRuntime: watch, lookAtRuntime: look };
}
