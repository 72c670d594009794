const customInspection = Symbol.for('nodejs.util.inspect.custom');

/// The values of the getters; a bundle's own are not run.
function membersOf(object) {
    const members = {};
    for (let holder = object; holder !== null; holder = Object.getPrototypeOf(holder)) {
        if (!Object.hasOwn(holder, customInspection)) continue;
        for (const [name, { get }] of Object.entries(Object.getOwnPropertyDescriptors(holder))) {
            if (get !== undefined) members[name] ??= object[name];
        }
    }
    return members;
}

/// An object as the console shows it: its class, its members, and what a bundle has put on it.
function describe(depth, options, inspect) {
    const { name } = this.constructor;
    if (depth < 0) return `[${name}]`;
    const members = this.entries === undefined ? membersOf(this) : Object.fromEntries(this);
    return `${name} ${inspect({ ...members, ...this }, { ...options, depth })}`;
}

/// Gives a class the looks of the web platform's own: its members are enumerable, and its instances
/// bear its name as their tag. `constants` are found on the class and on its instances.
export function webClass(made, name, constants = {}) {
    for (const holder of [made.prototype, made]) {
        for (const [key, value] of Object.entries(constants)) {
            Object.defineProperty(holder, key, { value, writable: false, configurable: false, enumerable: true });
        }
    }
    for (const key of Object.getOwnPropertyNames(made.prototype)) {
        if (key !== 'constructor') Object.defineProperty(made.prototype, key, { enumerable: true });
    }
    for (const key of Object.getOwnPropertyNames(made)) {
        if (typeof made[key] === 'function') Object.defineProperty(made, key, { enumerable: true });
    }
    if (!Object.hasOwn(made.prototype, Symbol.toStringTag)) {
        Object.defineProperty(made.prototype, Symbol.toStringTag, { value: name, configurable: true });
    }
    Object.defineProperty(made.prototype, customInspection, {
        value: describe, writable: true, configurable: true, enumerable: false,
    });
    return made;
}

/// The text as the web platform takes it: without lone surrogates.
export function wellFormed(value) {
    return `${value}`.toWellFormed();
}

/// The members of an options object, which may be missing.
export function optionsOf(value, place) {
    if (value === undefined || value === null) return {};
    if (typeof value !== 'object' && typeof value !== 'function') {
        throw new TypeError(`${place}: the options are not an object`);
    }
    return value;
}

/// Throws unless a call has as many arguments as it needs.
export function needArguments(count, given, place) {
    if (given < count) throw new TypeError(`${place}: expected ${count} arguments, found ${given}`);
}
