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
