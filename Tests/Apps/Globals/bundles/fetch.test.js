// fetch by itself, over plugins that only write down what they are told.
import { fetch, connect } from '../../../../Apps/zem/Globals/script/fetch.js';
import { FormData } from 'formdata-polyfill/esm.min.js';
import { AbortController } from '../../../../Apps/zem/Globals/script/abort.js';
import { Blob } from '../../../../Apps/zem/Globals/script/blob.js';
import { File } from '../../../../Apps/zem/Globals/script/file.js';
import { setNative } from '../../../../Apps/zem/Globals/script/native.js';

import { done, equal, rejects } from './check.js';

equal([globalThis.fetch.name, globalThis.fetch.length], ['fetch', 1]);

const order = [];
const taken = () => order.splice(0);
let answer;
const network = {
    sendRequest(request, onResponse, onError) {
        order.push(['send', this === network, request]);
        answer = { onResponse, onError };
        return 'token';
    },
    cancelRequest(token) {
        order.push(['cancel', token]);
    },
};
let stored = 0;
const binaries = {
    storeBinary(bytes, type, size, onSuccess) {
        if (type === 'full/disk') throw new Error('the disk is full');
        stored += 1;
        order.push(['store', [...bytes], type, size]);
        onSuccess(`handle ${stored}`);
    },
    removeBinary(handle, onSuccess) {
        order.push(['remove', handle]);
        onSuccess(true);
    },
};
const begin = (baseURL) => setNative({ now: () => 0, baseURL });

/// The request that `fetch` hands to the adapter.
function told(url, options) {
    fetch(url, options).catch(() => {});
    const [[act, isThis, request]] = taken();
    equal([act, isThis], ['send', true]);
    return request;
}

function sameRequest(request, expected) {
    equal(Object.keys(request).sort(), Object.keys(expected).sort());
    for (const [name, value] of Object.entries(expected)) {
        equal(typeof value === 'object' ? { ...request[name] } : request[name], value);
    }
}

async function requests() {
    const bare = { method: 'GET', queryParams: {}, headers: {} };
    begin('http://base.test/v2');
    for (const [url, options, expected] of [
        ['/a', {}, { path: '/a' }],
        ['http://base.test:80/v2/a/b', {}, { path: '/a/b' }],
        ['http://base.test/v2', {}, { host: 'http://base.test', path: '/v2' }],
        ['http://base.test/v1/a', {}, { host: 'http://base.test', path: '/v1/a' }],
        ['https://base.test/v2/a', {}, { host: 'https://base.test', path: '/v2/a' }],
        ['https://Other.test:8443/x?b=2', {}, { host: 'https://other.test:8443', path: '/x', queryParams: { b: '2' } }],
        // The map holds a query that it gives back as it was.
        ['/a?a=1&b=%C3%BC%20c&c=', {}, { path: '/a', queryParams: { a: '1', b: 'ü c', c: '' } }],
        ['/a?a=1&a=2', {}, { path: '/a?a=1&a=2' }],
        ['/a?b=1&a=2', {}, { path: '/a?b=1&a=2' }],
        ['/a?a=1+2', {}, { path: '/a?a=1+2' }],
        ['/a?a', {}, { path: '/a?a' }],
        ['/a#part', {}, { path: '/a' }],
        ['/a', { priority: 'high' }, { path: '/a', priority: 'high' }],
        ['/a', { priority: 'low' }, { path: '/a', priority: 'background' }],
        ['/a', { priority: 'auto' }, { path: '/a' }],
        ['/a', { headers: { A: '1', b: '2' } }, { path: '/a', headers: { a: '1', b: '2' } }],
        ['/a', { method: 'PATCH', body: 'x' },
            { path: '/a', method: 'PATCH', body: 'x', headers: { 'content-type': 'text/plain;charset=UTF-8' } }],
        ['/a', { method: 'PUT', body: new Uint8Array([0xef, 0xbb, 0xbf, 0x61]) },
            { path: '/a', method: 'PUT', body: '\ufeffa' }],
        ['/a', { method: 'POST', body: '', headers: { 'content-type': 'a/b' } },
            { path: '/a', method: 'POST', body: '', headers: { 'content-type': 'a/b' } }],
    ]) {
        sameRequest(told(url, options), { ...bare, ...expected });
    }
    begin(undefined);
    sameRequest(told('http://base.test/v2/a'), { ...bare, host: 'http://base.test', path: '/v2/a' });
}

async function forms() {
    begin('http://base.test/v2');
    const form = new FormData();
    form.append('n', 'v');
    form.append('f', new File([new Uint8Array([0, 255])], 'name', { type: 'x/y' }));
    form.append('g', new Blob([]));
    const promise = fetch('/a', { method: 'POST', body: form });
    const transcript = taken();
    const [, , request] = transcript.splice(2, 1)[0];
    // The plugin builds the form before it returns: the files go at once, whatever becomes of the run.
    equal(transcript, [['store', [0, 255], 'x/y', 2], ['store', [], 'application/octet-stream', 0],
        ['remove', 'handle 1'], ['remove', 'handle 2']]);
    sameRequest(request, {
        method: 'POST', path: '/a', queryParams: {}, headers: {},
        body: JSON.stringify({ namedEntries: [
            { name: 'n', value: 'v' },
            { name: 'f', value: { handle: 'handle 1', name: 'name', type: 'x/y' } },
            { name: 'g', value: { handle: 'handle 2', name: 'blob', type: 'application/octet-stream' } },
        ] }),
    });
    answer.onResponse({ status: 200, headers: {} });
    equal((await promise).status, 200);

    form.append('h', new File([], 'late', { type: 'full/disk' }));
    await rejects(fetch('/a', { method: 'POST', body: form }), 'TypeError',
        'fetch: the binary store does not take a file of the form: the disk is full');
    equal(taken().map(([act, what]) => `${act} ${what}`),
        ['store 0,255', 'store ', 'remove handle 3', 'remove handle 4']);

    connect(network, undefined);
    await rejects(fetch('/a', { method: 'POST', body: form }), 'TypeError',
        'fetch: this run has no binary store, by which the files of a form are sent');
    equal(taken(), []);
    connect(network, binaries);
}

async function outcomes() {
    let promise = fetch('http://host.test/a#part');
    answer.onResponse({ status: 204, headers: { 'X-A': '\u20ac' } });
    const response = await promise;
    equal([response.status, response.url, response.headers.get('x-a'), await response.text()],
        [204, 'http://host.test/a', '\u20ac', '']);

    for (const [error, message, why] of [
        [{ type: 'timeout', message: 'too slow' }, 'fetch failed: too slow', 'too slow'],
        [{ type: 'timeout' }, 'fetch failed: timeout', ''],
        [{ type: 'unspecified', message: 'no way' }, 'fetch failed: no way', 'no way'],
    ]) {
        promise = fetch('http://host.test/a');
        answer.onError(error);
        const { cause } = await rejects(promise, 'TypeError', message);
        equal([cause instanceof Error, cause.name, cause.type, cause.message], [true, 'NetworkError', error.type, why]);
    }
    taken();

    // The adapter answers a canceled exchange, too.
    const controller = new AbortController();
    promise = fetch('http://host.test/a', { signal: controller.signal });
    controller.abort();
    answer.onError({ type: 'unspecified', message: 'canceled' });
    await rejects(promise, 'AbortError', 'The operation was aborted');
    equal(taken().map(([act, what]) => [act, what]), [['send', true], ['cancel', 'token']]);
    // One that is over is not canceled.
    const later = new AbortController();
    promise = fetch('http://host.test/a', { signal: later.signal });
    answer.onResponse({ status: 200, headers: {} });
    await promise;
    later.abort();
    equal(taken().length, 1);

    network.sendRequest = () => 'replaced';
    fetch('http://host.test/a');
    equal(taken().length, 1);
}

(async () => {
    begin(undefined);
    await rejects(fetch('http://host.test/a'), 'TypeError', 'fetch: this run has no network adapter');
    connect(network, binaries);
    await requests();
    await forms();
    await outcomes();
    done();
})();
