const customInspection = Symbol.for('nodejs.util.inspect.custom');

// The properties that the engine puts on every error, and its name; others are the program's own.
const knownParts = new Set(['name', 'message', 'line', 'column', 'sourceURL', 'stack']);

// The frames of this file and its neighbours are of no use in a bundle's stack.
const ownFrames = 'zem:globals';

/// The stack as the engine writes it ("name@file:line:column", a frame a line), taken apart.
function framesOf(error) {
    if (typeof error.stack !== 'string') return [];
    return error.stack
        .split('\n')
        .filter((line) => line !== '' && !line.includes(ownFrames))
        .map((line) => {
            const at = line.indexOf('@');
            return { name: line.slice(0, Math.max(at, 0)), place: line.slice(at + 1) };
        });
}

/// "file:line:column" of where an error was made, as far as it is known; a syntax error has no column.
function placeOf(error) {
    const frame = framesOf(error).find(({ place }) => /:\d+:\d+$/.test(place));
    if (frame !== undefined) return frame.place;
    return [error.sourceURL, error.line, error.column].filter((part) => part !== undefined).join(':');
}

/// The text of `String(error)`, the frames of its stack, and its own properties, its cause included.
function describe(depth, options, inspect) {
    const head = String(this);
    if (depth < 0) return `[${head}]`;
    const frames = framesOf(this).map(({ name, place }) => `    at ${name === '' ? place : `${name} (${place})`}`);
    const own = {};
    for (const name of Object.getOwnPropertyNames(this)) {
        if (!knownParts.has(name)) own[name] = this[name];
    }
    const rest = Object.keys(own).length > 0 ? ` ${inspect(own, { ...options, depth })}` : '';
    return [head, ...frames].join('\n') + rest;
}

/// Has errors shown whole: the engine's stacks hold neither name nor message, and what shows values
/// takes its word for what they hold.
export function teachErrors() {
    Object.defineProperty(Error.prototype, customInspection, {
        value: describe,
        writable: true,
        configurable: true,
        enumerable: false,
    });
}

/// The report on a value that nobody caught: where, what, and the stack.
export function describeUncaught(inspect, value, wasRejection) {
    const place = value instanceof Error ? placeOf(value) : '';
    return `${place === '' ? '' : `${place}: `}Uncaught ${wasRejection ? '(in promise) ' : ''}${inspect(value)}`;
}
