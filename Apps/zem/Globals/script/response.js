import { contentOf, copyContent, readsBody, setContent } from './body.js';
import { resolve } from './address.js';
import { Headers, headersOfResponse } from './headers.js';
import { needArguments, optionsOf, webClass } from './web-class.js';

const bodiless = [101, 103, 204, 205, 304];
const redirects = [301, 302, 303, 307, 308];

/// responseOf(answer, url): the network adapter's answer to a request for the URL.
export let responseOf;

export class Response {
    #status;
    #statusText;
    #headers;
    #type = 'default';
    #url = '';

    constructor(body = null, options = {}) {
        const { status = 200, statusText = '', headers } = optionsOf(options, 'Response');
        this.#status = Math.trunc(Number(status));
        if (!(this.#status >= 200 && this.#status <= 599)) {
            throw new RangeError('Response: expected a status from 200 to 599');
        }
        this.#statusText = `${statusText}`;
        if (/[^\t\x20-\x7e\x80-\xff]/.test(this.#statusText)) {
            throw new TypeError('Response: the status text is not valid');
        }
        this.#headers = new Headers(headers);
        const content = contentOf(body);
        if (content !== null && bodiless.includes(this.#status)) {
            throw new TypeError(`Response: a response with the status ${this.#status} has no body`);
        }
        setContent(this, content, this.#headers);
    }

    static {
        responseOf = ({ status, headers, body }, url) => {
            const response = new Response();
            response.#status = status;
            response.#headers = headersOfResponse(headers);
            response.#type = 'basic';
            response.#url = url;
            setContent(response, body === undefined ? null : { text: body, type: '' }, response.#headers);
            return response;
        };
    }

    static error() {
        const response = new Response();
        response.#status = 0;
        response.#type = 'error';
        return response;
    }

    static redirect(url, status = 302) {
        needArguments(1, arguments.length, 'Response.redirect');
        if (!redirects.includes(status)) throw new RangeError('Response.redirect: the status is not that of a redirect');
        return new Response(null, { status, headers: { location: resolve(`${url}`, 'Response.redirect').href } });
    }

    static json(data, options = {}) {
        needArguments(1, arguments.length, 'Response.json');
        const text = JSON.stringify(data);
        if (text === undefined) throw new TypeError('Response.json: the data has no form in JSON');
        const response = new Response(text, options);
        if (!new Headers(options?.headers).has('content-type')) response.headers.set('content-type', 'application/json');
        return response;
    }

    get type() {
        return this.#type;
    }
    get url() {
        return this.#url;
    }
    /// The network adapter follows redirects, and does not tell.
    get redirected() {
        return false;
    }
    get status() {
        return this.#status;
    }
    get ok() {
        return this.#status >= 200 && this.#status <= 299;
    }
    get statusText() {
        return this.#statusText;
    }
    get headers() {
        return this.#headers;
    }
    clone() {
        const content = copyContent(this);
        const response = new Response();
        response.#status = this.#status;
        response.#statusText = this.#statusText;
        response.#headers = new Headers(this.#headers);
        response.#type = this.#type;
        response.#url = this.#url;
        setContent(response, content, response.#headers);
        return response;
    }
}

readsBody(Response);
webClass(Response, 'Response');
