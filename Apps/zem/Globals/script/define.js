/// Defines properties the way built-in ones are: writable, configurable, and not enumerable. Functions
/// bear the name that they are defined under, whatever the bundler has called them.
export function define(target, properties) {
    for (const [name, value] of Object.entries(properties)) {
        if (typeof value === 'function' && value.name !== name) {
            Object.defineProperty(value, 'name', { value: name, configurable: true });
        }
        Object.defineProperty(target, name, { value, writable: true, configurable: true, enumerable: false });
    }
    return target;
}
