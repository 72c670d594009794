import { classes, done, equal, rejects, throws } from './check.js';

classes({ Response: 0 });

(async () => {
    const plain = new Response();
    equal([plain.status, plain.ok, plain.statusText, plain.type, plain.url, plain.redirected, plain.body, plain.bodyUsed],
        [200, true, '', 'default', '', false, null, false]);
    equal([await plain.text(), plain.bodyUsed, await plain.text()], ['', false, '']);
    for (const [status, ok] of [[200, true], [299, true], [300, false], [404, false], [599, false]]) {
        equal(new Response(null, { status }).ok, ok);
    }
    for (const status of [0, 199, 600, 'x']) {
        throws(() => new Response(null, { status }), 'RangeError', 'Response: expected a status from 200 to 599');
    }
    for (const status of [204, 205, 304]) {
        equal(new Response(null, { status }).status, status);
        throws(() => new Response('', { status }), 'TypeError',
            `Response: a response with the status ${status} has no body`);
    }
    throws(() => new Response(null, { statusText: 'a\nb' }), 'TypeError', 'Response: the status text is not valid');

    const response = new Response('\ufeffé{}', { status: 201, statusText: 'Made', headers: { a: '1' } });
    equal([response.status, response.statusText, response.headers.get('a'), response.headers.get('content-type')],
        [201, 'Made', '1', 'text/plain;charset=UTF-8']);
    const copy = response.clone();
    copy.headers.set('a', '2');
    equal([...await copy.bytes()], [0xef, 0xbb, 0xbf, 0xc3, 0xa9, 0x7b, 0x7d]);
    equal([response.headers.get('a'), response.bodyUsed, copy.bodyUsed, copy.statusText], ['1', false, true, 'Made']);
    equal((await response.clone().arrayBuffer()).byteLength, 7);
    equal([await (await response.clone().blob()).text(), await response.text()], ['é{}', 'é{}']);
    for (const read of ['text', 'json', 'arrayBuffer', 'bytes', 'blob', 'formData']) {
        await rejects(response[read](), 'TypeError', 'the body has been read already');
    }
    throws(() => response.clone(), 'TypeError', 'the body has been read already');
    equal((await new Response(new URLSearchParams('a=1&b=%C3%BC')).formData()).get('b'), 'ü');
    await rejects(new Response('x').formData(), 'TypeError',
        'formData: expected an urlencoded form, or a FormData that was not sent yet');

    const json = Response.json({ a: 1 }, { status: 202 });
    equal([json.status, json.headers.get('content-type'), await json.json()], [202, 'application/json', { a: 1 }]);
    equal(Response.json(1, { headers: { 'Content-Type': 'own/json' } }).headers.get('content-type'), 'own/json');
    throws(() => Response.json(() => {}), 'TypeError', 'Response.json: the data has no form in JSON');
    equal([Response.error().type, Response.error().status, Response.error().ok], ['error', 0, false]);
    const redirect = Response.redirect('http://host.test/x', 307);
    equal([redirect.status, redirect.headers.get('location'), Response.redirect('http://host.test').status],
        [307, 'http://host.test/x', 302]);
    throws(() => Response.redirect('http://host.test/', 200), 'RangeError',
        'Response.redirect: the status is not that of a redirect');
    done();
})();
