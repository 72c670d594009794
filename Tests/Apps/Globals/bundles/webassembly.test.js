import { done, equal } from './check.js';

// A module that adds two integers. It is compiled on other threads; nothing else keeps the run alive.
const bytes = new Uint8Array([
    0, 97, 115, 109, 1, 0, 0, 0, 1, 7, 1, 96, 2, 127, 127, 1, 127, 3, 2, 1, 0, 7, 7, 1, 3, 97, 100, 100, 0, 0, 10, 9, 1,
    7, 0, 32, 0, 32, 1, 106, 11,
]);

async function main() {
    const { instance } = await WebAssembly.instantiate(bytes);
    equal(instance.exports.add(2, 3), 5);
    const module = await WebAssembly.compile(bytes);
    equal(module instanceof WebAssembly.Module, true);
    equal((await WebAssembly.instantiate(module)).exports.add(4, 5), 9);
    const failure = await WebAssembly.compile(new Uint8Array([1])).catch((error) => error);
    equal(failure instanceof WebAssembly.CompileError, true);
    await new Promise((resolve) => setTimeout(resolve, 1));
    done();
}
main();
