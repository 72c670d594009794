import { whenAborted } from './abort.js';
import { addressOf } from './address.js';
import { bytesOfBlob } from './blob.js';
import { takeContent, textOf } from './body.js';
import { priorityOf, Request } from './request.js';
import { responseOf } from './response.js';
import { needArguments } from './web-class.js';

const priorities = new Map([['high', 'high'], ['low', 'background']]);

// The plugins as they were before the bundle ran; it may lay hands on them. Undefined if there is none.
let network;
let binaries;

function methodsOf(plugin, names) {
    if (plugin === undefined) return undefined;
    return Object.fromEntries(names.map((name) => {
        const method = plugin[name];
        return [name, (...args) => Reflect.apply(method, plugin, args)];
    }));
}

export function connect(networkAdapter, binaryStore) {
    network = methodsOf(networkAdapter, ['sendRequest', 'cancelRequest']);
    binaries = methodsOf(binaryStore, ['storeBinary', 'removeBinary']);
}

function refuse(reason) {
    throw new TypeError(`fetch: ${reason}`);
}

/// The adapter follows all redirects and knows no checksums: what asks for more is not quietly ignored.
function check(request) {
    if (network === undefined) refuse('this run has no network adapter');
    if (request.redirect !== 'follow') refuse(`redirects are followed always, and the request has "${request.redirect}"`);
    if (request.integrity !== '') refuse('the integrity of a response is not checked here');
}

/// The adapter's plugin makes a form of such a body, and sends it to the base of the run.
function isTakenForForm(method, text) {
    if (method !== 'POST' || !text.includes('namedEntries')) return false;
    try {
        return Array.isArray(JSON.parse(text).namedEntries);
    } catch {
        return false;
    }
}

function bodyText(method, content) {
    const text = textOf(content);
    if (text === undefined) {
        refuse('the body is not valid UTF-8 text: bytes are sent as a File of a FormData, by POST');
    }
    if (isTakenForForm(method, text)) {
        refuse('a JSON body with a list "namedEntries" is taken for a form by the network adapter: send a FormData');
    }
    return text;
}

function escaped(name) {
    return name.replace(/\n/g, '%0A').replace(/\r/g, '%0D').replace(/"/g, '%22');
}

function withLineBreaks(text) {
    return text.replace(/\r\n|\r|\n/g, '\r\n');
}

function store(file, type) {
    let handle;
    try {
        binaries.storeBinary(bytesOfBlob(file), type, file.size, (stored) => {
            handle = stored;
        }, () => {});
    } catch (cause) {
        throw new TypeError(`fetch: the binary store does not take a file of the form: ${cause.message}`, { cause });
    }
    return handle;
}

/// The list that the adapter's plugin builds the form from. The files' bytes are in the binary store
/// meanwhile, under `handles`.
function formText(form, handles) {
    const namedEntries = form.map(([key, value]) => {
        const name = escaped(withLineBreaks(key));
        if (typeof value === 'string') return { name, value: withLineBreaks(value) };
        const type = value.type === '' ? 'application/octet-stream' : value.type;
        const handle = store(value, type);
        handles.push(handle);
        return { name, value: { handle, name: escaped(value.name), type } };
    });
    return JSON.stringify({ namedEntries });
}

function sendForm(message, form, send) {
    if (message.method !== 'POST') refuse('a form with files is sent by POST only');
    if (message.host !== undefined) refuse('a form with files goes only to URLs below the base of the run (--url)');
    if (binaries === undefined) refuse('this run has no binary store, by which the files of a form are sent');
    delete message.headers['content-type'];
    const handles = [];
    try {
        message.body = formText(form, handles);
        return send(message);
    } finally {
        // The form has been built, with the bytes in it.
        for (const handle of handles) binaries.removeBinary(handle, () => {}, () => {});
    }
}

function headersOf(request) {
    const fields = Object.create(null);
    for (const [name] of request.headers) fields[name] = request.headers.get(name);
    return fields;
}

function start(request, send) {
    const content = takeContent(request);
    const message = { method: request.method, headers: headersOf(request), ...addressOf(request.url, 'fetch') };
    const priority = priorities.get(priorityOf(request));
    if (priority !== undefined) message.priority = priority;
    if (content?.form !== undefined) return sendForm(message, content.form, send);
    if (content !== null) message.body = bodyText(request.method, content);
    return send(message);
}

function failure({ type, message }) {
    const cause = Object.assign(new Error(message ?? ''), { name: 'NetworkError', type });
    return new TypeError(`fetch failed: ${message ?? type}`, { cause });
}

/// Over "ZemNetworkAdapter". The promise is rejected with a TypeError where there is no response, and at
/// once with the signal's reason where it is aborted.
export function fetch(input) {
    const options = arguments[1];
    const count = arguments.length;
    return new Promise((resolve, reject) => {
        needArguments(1, count, 'fetch');
        const request = new Request(input, options);
        const { signal } = request;
        signal.throwIfAborted();
        check(request);
        let forget = () => {};
        const settle = (action, value) => {
            forget();
            action(value);
        };
        const withoutFragment = request.url.replace(/#.*$/, '');
        const token = start(request, (message) => network.sendRequest(message,
            (response) => settle(resolve, responseOf(response, withoutFragment)),
            (error) => settle(reject, failure(error))));
        forget = whenAborted(signal, () => {
            network.cancelRequest(token);
            reject(signal.reason);
        });
    });
}
