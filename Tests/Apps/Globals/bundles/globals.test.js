import { done, equal, throws } from './check.js';

// As in browsers and in the language itself, none is listed; the plugins are.
equal(Object.keys(globalThis), ['ZemSqliteStore', 'ZemNetworkAdapter', 'ZemBinaryStorePlugin', 'ZemDraftQueue']);
for (const name of ['console', 'setTimeout', 'clearTimeout', 'setInterval', 'clearInterval', 'queueMicrotask',
    'performance', 'TextEncoder', 'TextDecoder', 'crypto', 'structuredClone', 'atob', 'btoa', 'URL', 'URLSearchParams',
    'DOMException', 'fetch', 'host']) {
    const { writable, configurable, enumerable } = Object.getOwnPropertyDescriptor(globalThis, name);
    equal([name, writable, configurable, enumerable], [name, true, true, false]);
}
for (const name of ['setTimeout', 'clearTimeout', 'setInterval', 'clearInterval', 'queueMicrotask', 'TextEncoder',
    'TextDecoder', 'structuredClone', 'atob', 'btoa', 'URL', 'URLSearchParams', 'DOMException', 'fetch']) {
    equal([typeof globalThis[name], globalThis[name].name], ['function', name]);
}
for (const name of ['log', 'info', 'warn', 'error', 'debug']) equal([typeof console[name], console[name].name], ['function', name]);

// Bundles find no trace of the code that makes the globals.
equal(Object.getOwnPropertyNames(globalThis).filter((name) => /native|globals|core-js|install/i.test(name)), []);
equal(Function.prototype.toString.name, 'toString');
equal('prototype' in Function.prototype.toString, false);
equal(Object.getOwnPropertyNames(Error.prototype).sort(), ['constructor', 'message', 'name', 'toString']);

equal(Array.isArray(host.args), true);
equal(Object.isFrozen(host.args), true);
equal(host.args, []);
for (const code of [-1, 256, 1.5, NaN, '1', null, {}]) {
    throws(() => host.exit(code), 'RangeError', 'host.exit: the code is an integer from 0 to 255');
}
done();
