import 'core-js/stable/url';

import { native } from './native.js';

const URL = globalThis.URL;

/// The base of relative URLs, with a slash at its end.
function baseOf(place) {
    if (native.baseURL === undefined) {
        throw new TypeError(`${place}: expected an absolute URL, as the run has no base (--url): found a relative one`);
    }
    const base = new URL(native.baseURL);
    return `${base.origin}${base.pathname.replace(/\/$/, '')}/`;
}

function isAbsolute(text) {
    return /^[a-z][a-z\d+.-]*:/i.test(text);
}

/// `text` as a URL. The path of the base leads every relative path, one that begins with a slash too:
/// this is how the network adapter reads a path.
export function resolve(text, place) {
    const given = text.trim();
    const base = isAbsolute(given) ? '' : baseOf(place);
    let url;
    try {
        url = given.startsWith('//') ? new URL(given, base) : new URL(base + given.replace(/^\//, ''));
    } catch (cause) {
        throw new TypeError(`${place}: the URL is not valid`, { cause });
    }
    if (url.username !== '' || url.password !== '') throw new TypeError(`${place}: the URL holds credentials`);
    return url;
}

/// As the network adapter writes it.
function encoded(text) {
    return encodeURIComponent(text).replace(/[!'()*]/g, (sign) => `%${sign.charCodeAt(0).toString(16).toUpperCase()}`);
}

/// The query as a map, or undefined where the map would not give back the same query: a name stands in it
/// twice, or the order or the encoding is another.
function parametersOf(query) {
    const parameters = Object.create(null);
    try {
        for (const pair of query === '' ? [] : query.split('&')) {
            const [name, ...value] = pair.split('=');
            parameters[decodeURIComponent(name)] = decodeURIComponent(value.join('='));
        }
    } catch {
        return undefined;
    }
    const written = Object.keys(parameters).sort().map((name) => `${encoded(name)}=${encoded(parameters[name])}`);
    return written.join('&') === query ? parameters : undefined;
}

/// Where a request for a URL goes, in the network adapter's terms. Below the base of the run there is no
/// host.
export function addressOf(href, place) {
    const url = new URL(href);
    if (url.protocol !== 'http:' && url.protocol !== 'https:') {
        throw new TypeError(`${place}: expected an http or https URL`);
    }
    const query = url.search.slice(1);
    const parameters = parametersOf(query);
    const rest = parameters === undefined ? `?${query}` : '';
    const queryParams = parameters ?? {};
    const base = native.baseURL === undefined ? undefined : baseOf(place);
    const whole = url.origin + url.pathname;
    return base !== undefined && whole.startsWith(base)
        ? { path: `/${whole.slice(base.length)}${rest}`, queryParams }
        : { host: url.origin, path: url.pathname + rest, queryParams };
}
