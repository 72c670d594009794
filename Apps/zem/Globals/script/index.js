// The globals that a bundle finds beside the language's own. What the engine cannot do by itself comes
// in as `native`, which is kept from the bundle:
//
//   json                   whether console lines are written as JSON
//   write(isError, text)   writes a line to standard error or standard output
//   baseURL                what relative URLs are relative to; undefined if there is none
//   startTimer(id, delay, holdsRun)
//                          has fireTimer(id) called once, after so many milliseconds; whether the run
//                          waits for it
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

import { FormData } from 'formdata-polyfill/esm.min.js';

import { AbortController, AbortSignal, setAlarm } from './abort.js';
import { Blob } from './blob.js';
import { makeCrypto } from './crypto.js';
import { define } from './define.js';
import { describeUncaught, teachErrors } from './errors.js';
import { CustomEvent, Event, EventTarget, MessageEvent } from './events.js';
import { connect, fetch } from './fetch.js';
import { File } from './file.js';
import { Headers } from './headers.js';
import { makeHost, makeQueueMicrotask } from './host.js';
import { MessageChannel, MessagePort, setLater } from './messages.js';
import { setNative } from './native.js';
import { Request } from './request.js';
import { Response } from './response.js';
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
/// watchRuntime() when the plugins are there, before the bundle runs, and lookAtRuntime() after,
/// showResult(failed, value, done), and describeUncaught(value, wasRejection), the report on a value that
/// nobody caught.
export function install(native) {
    setNative(native);
    const { fireTimer, startAlarm, ...timers } = makeTimers(native);
    setAlarm(startAlarm);
    setLater((task) => timers.setTimeout(task));
    const { watchRuntime, lookAtRuntime } = makeRuntimeWatch(native, inspect);
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
        AbortController,
        AbortSignal,
        Blob,
        CustomEvent,
        Event,
        EventTarget,
        File,
        FormData,
        Headers,
        MessageChannel,
        MessageEvent,
        MessagePort,
        Request,
        Response,
        fetch,
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
        watchRuntime() {
            connect(globalThis.ZemNetworkAdapter, globalThis.ZemBinaryStorePlugin);
            watchRuntime();
        },
        lookAtRuntime,
        showResult: makeShowResult(inspect),
        describeUncaught: (value, wasRejection) => describeUncaught(inspect, value, wasRejection),
    };
}
