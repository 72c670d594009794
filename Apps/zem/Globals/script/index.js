// The globals that a bundle finds beside the language's own. What the engine cannot do by itself comes
// in as `native`, which is kept from the bundle:
//
//   json                   whether console lines are written as JSON
//   write(isError, text)   writes a line to standard error or standard output
//   startTimer(id, delay)  has fireTimer(id) called once, after so many milliseconds
//   stopTimer(id)          takes that back
//   hold(), release()      keep the run from ending in between
//   now()                  milliseconds since the run began, with fractions
//   timeOrigin             when that was, in milliseconds since 1970
//   randomBytes(n)         an ArrayBuffer of so many random bytes
//   randomUUID()           a fresh UUID, in upper case
//   arguments              the texts after `--`
//   exit(code)             ends the run with this code, and does not return
//   fail(error)            ends it with an uncaught exception, and does not return
//   runtimePromised(), runtimeArrived(dataService, draftManager, draftQueue), runtimeFailed(why)
//                          what becomes of globalThis.runtime; a part that cannot be used is the text that
//                          says why; the last one answers whether anybody cares

import { restoreFunctionToString } from './engine.js';

import 'core-js/stable/atob';
import 'core-js/stable/btoa';
import 'core-js/stable/dom-exception';
import 'core-js/stable/structured-clone';
import 'core-js/stable/url';
import 'core-js/stable/url-search-params';
import { TextDecoder, TextEncoder } from '@exodus/bytes/encoding-lite.js';

import { makeCrypto } from './crypto.js';
import { define } from './define.js';
import { describeUncaught, teachErrors } from './errors.js';
import { makeHost, makeQueueMicrotask } from './host.js';
import { makeShowResult } from './results.js';
import { makeRuntimeWatch } from './runtime.js';
import { makeTimers } from './timers.js';
import { inspect } from './inspect.js';
import { replaceConsole } from './console.js';
import { keepAliveWhileCompiling } from './webassembly.js';

/// Unless there is a global of that name already, which is answered with false.
function addGlobal(name, value) {
    if (name in globalThis) return false;
    globalThis[name] = value;
    return true;
}

/// Defines the globals. Returns what the host calls: addGlobal(name, value), fireTimer(id),
/// watchRuntime() before the bundle runs and lookAtRuntime() after, showResult(failed, value, done), and
/// describeUncaught(value, wasRejection), the report on a value that nobody caught.
export function install(native) {
    const { fireTimer, ...timers } = makeTimers(native);
    define(globalThis, {
        ...timers,
        queueMicrotask: makeQueueMicrotask(native),
        performance: define({}, { now: () => native.now(), timeOrigin: native.timeOrigin }),
        TextDecoder,
        TextEncoder,
        crypto: makeCrypto(native),
        DOMException: globalThis.DOMException,
        structuredClone: globalThis.structuredClone,
        atob: globalThis.atob,
        btoa: globalThis.btoa,
        URL: globalThis.URL,
        URLSearchParams: globalThis.URLSearchParams,
        host: makeHost(native),
    });
    replaceConsole(native);
    teachErrors();
    keepAliveWhileCompiling(native, timers.setTimeout);
    restoreFunctionToString();
    delete globalThis['__core-js_shared__'];
    return {
        addGlobal,
        fireTimer,
        ...makeRuntimeWatch(native, inspect),
        showResult: makeShowResult(inspect),
        describeUncaught: (value, wasRejection) => describeUncaught(inspect, value, wasRejection),
    };
}
