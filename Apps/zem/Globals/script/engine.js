// The parts of the engine that the packages change, to be put back. Imported before any of them.

const functionToString = Object.getOwnPropertyDescriptor(Function.prototype, 'toString');

export function restoreFunctionToString() {
    Object.defineProperty(Function.prototype, 'toString', functionToString);
}
