import ky, { HTTPError, TimeoutError } from 'ky';

import { done, equal, rejection } from '../../Globals/bundles/check.js';

const [url] = host.args;
const client = ky.create({ prefixUrl: url, headers: { 'X-Client': 'zem' } });

(async () => {
    const got = await client.get('echo', { searchParams: { q: 'a b', n: 1 } }).json();
    equal([got.method, got.target], ['GET', '/echo?q=a+b&n=1']);
    const posted = await client.post('echo', { json: { n: 1, text: 'é' } }).json();
    equal([posted.method, posted.type, posted.body], ['POST', 'application/json', '{"n":1,"text":"é"}']);
    equal(await client.put('echo', { body: 'plain' }).then(async (response) => (await response.json()).body), 'plain');
    const form = new FormData();
    form.append('file', new File([new Uint8Array([0, 255])], 'two.bin', { type: 'image/x' }));
    equal(await client.post('upload', { body: form }).text(), 'done');

    // Tried again after a 503.
    equal(await client.get('flaky', { retry: { limit: 2, delay: () => 1 } }).text(), 'at last');

    const missing = await rejection(client.get('missing'));
    equal([missing instanceof HTTPError, missing.response.status, missing.request.url], [true, 404, `${url}/missing`]);
    const controller = new AbortController();
    const aborted = rejection(client.get('hang', { signal: controller.signal }));
    await client.get('asked');
    controller.abort();
    equal((await aborted).name, 'AbortError');
    const late = await rejection(client.get('hang', { timeout: 30, retry: 0 }));
    equal([late instanceof TimeoutError, late.name], [true, 'TimeoutError']);

    const seen = [];
    const hooked = client.extend({
        hooks: {
            beforeRequest: [(request) => request.headers.set('X-Hook', '1')],
            afterResponse: [(request, options, response) => {
                seen.push(response.status);
            }],
        },
    });
    equal([(await hooked.delete('echo').json()).method, seen], ['DELETE', [200]]);
    done();
})();
