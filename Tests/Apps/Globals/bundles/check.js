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

export function done() {
    console.log(`${count} checks`);
}
