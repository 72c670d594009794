// Checks for bundles. A check that fails throws, which ends the run with exit code 1; `done` says how
// many there were, and is the last thing that a bundle does.

let count = 0;

function same(actual, expected) {
    if (Object.is(actual, expected)) return true;
    if (typeof actual !== 'object' || typeof expected !== 'object' || actual === null || expected === null) {
        return false;
    }
    if (Object.getPrototypeOf(actual) !== Object.getPrototypeOf(expected)) return false;
    const names = Object.keys(expected);
    return Object.keys(actual).length === names.length && names.every((name) => same(actual[name], expected[name]));
}

export function equal(actual, expected) {
    count += 1;
    if (!same(actual, expected)) {
        console.error('found', actual);
        console.error('expected', expected);
        throw new Error(`check ${count} failed`);
    }
}

/// The error that `action` throws, which has this name and message.
export function throws(action, name, message) {
    let thrown;
    try {
        action();
    } catch (error) {
        thrown = error;
    }
    equal(thrown && [thrown.name, thrown.message], [name, message]);
    return thrown;
}

/// The error that a promise is rejected with.
export async function rejection(promise) {
    try {
        await promise;
    } catch (error) {
        return error;
    }
    throw new Error('expected a rejection, and the promise was fulfilled');
}

/// The same for an error that has this name and message.
export async function rejects(promise, name, message) {
    const error = await rejection(promise);
    equal([error.name, error.message], [name, message]);
    return error;
}

/// Returns in a later turn, after those that were asked for before.
export function turn() {
    return new Promise((resolve) => {
        setTimeout(resolve);
    });
}

/// Classes look like the engine's own: these are their names, and the numbers of arguments they need.
export function classes(lengths) {
    for (const [name, length] of Object.entries(lengths)) {
        const made = globalThis[name];
        equal([typeof made, made.name, made.length], ['function', name, length]);
        equal(Object.prototype.toString.call(made.prototype), `[object ${name}]`);
        const tag = Object.getOwnPropertyDescriptor(made.prototype, Symbol.toStringTag);
        equal([tag.configurable, tag.enumerable], [true, false]);
        const { writable, configurable, enumerable } = Object.getOwnPropertyDescriptor(globalThis, name);
        equal([writable, configurable, enumerable], [true, true, false]);
        throws(() => made(), 'TypeError', 'Cannot call a class constructor without |new|');
    }
}

export function done() {
    console.log(`${count} checks`);
}
