/// The functions that index.js describes. Set once, before any of the globals is used.
export let native;

export function setNative(given) {
    native = given;
}
