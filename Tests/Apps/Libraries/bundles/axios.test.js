import axios from 'axios';

import { done, equal, rejection } from '../../Globals/bundles/check.js';

const [url] = host.args;
const client = axios.create({ baseURL: url, headers: { 'X-Client': 'zem' } });

(async () => {
    const got = await client.get('/echo', { params: { q: 'a b', list: [1, 2] } });
    equal([got.status, got.headers['content-type'], got.data.method, got.data.target],
        [200, 'application/json', 'GET', '/echo?q=a+b&list[]=1&list[]=2'.replaceAll('[]', '%5B%5D')]);
    const posted = await client.post('/echo', { n: 1, text: 'é' });
    equal([posted.data.method, posted.data.body], ['POST', '{"n":1,"text":"é"}']);
    const form = await client.post('/echo', new URLSearchParams({ a: '1', b: 'x y' }));
    equal(form.data.body, 'a=1&b=x+y');
    const file = new File([new Uint8Array([0, 255])], 'two.bin', { type: 'image/x' });
    equal((await client.postForm('/upload', { note: 'n', file })).data, 'done');

    client.interceptors.request.use((config) => {
        config.headers.set('Authorization', 'Bearer t');
        return config;
    });
    equal((await client.delete('/echo')).data.method, 'DELETE');

    const missing = await rejection(client.get('/missing'));
    equal([axios.isAxiosError(missing), missing.code, missing.response.status, missing.response.data, missing.message],
        [true, 'ERR_BAD_REQUEST', 404, 'none', 'Request failed with status code 404']);
    const refused = await rejection(axios.get(host.args[1]));
    equal([refused.code, refused.message, refused.cause.type], ['ERR_NETWORK', 'Network Error', 'unspecified']);

    const controller = new AbortController();
    const canceled = rejection(client.get('/hang', { signal: controller.signal }));
    await client.get('/asked');
    controller.abort();
    equal([axios.isCancel(await canceled), (await canceled).code], [true, 'ERR_CANCELED']);
    equal((await rejection(client.get('/hang', { timeout: 30 }))).code, 'ETIMEDOUT');
    done();
})();
