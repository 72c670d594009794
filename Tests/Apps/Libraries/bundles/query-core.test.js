import { QueryClient, QueryObserver } from '@tanstack/query-core';

import { done, equal } from '../../Globals/bundles/check.js';

const [url] = host.args;
const client = new QueryClient({ defaultOptions: { queries: { retry: false, staleTime: Infinity, gcTime: Infinity } } });

function get(path) {
    return async ({ signal }) => {
        const response = await fetch(url + path, { signal });
        if (!response.ok) throw new Error(`status ${response.status}`);
        return response.json();
    };
}

(async () => {
    const options = { queryKey: ['echo'], queryFn: get('/echo') };
    const [first, second] = await Promise.all([client.fetchQuery(options), client.fetchQuery(options)]);
    equal([first === second, first.target, (await client.fetchQuery(options)) === first], [true, '/echo', true]);

    let failed;
    await client.fetchQuery({ queryKey: ['missing'], queryFn: get('/missing') }).catch((error) => {
        failed = error.message;
    });
    equal([failed, client.getQueryState(['missing']).status], ['status 404', 'error']);

    const flaky = await client.fetchQuery({
        queryKey: ['flaky'], queryFn: () => fetch(`${url}/flaky`).then((response) => {
            if (!response.ok) throw new Error('again');
            return response.text();
        }), retry: 1, retryDelay: 1,
    });
    equal(flaky, 'at last');

    // A query that nobody waits for any longer is canceled, and its exchange with it.
    const hanging = client.fetchQuery({ queryKey: ['hang'], queryFn: get('/hang') });
    const canceled = hanging.catch((error) => error.constructor.name);
    await fetch(`${url}/asked`);
    await client.cancelQueries({ queryKey: ['hang'] });
    equal([await canceled, client.getQueryState(['hang']).fetchStatus], ['CancelledError', 'idle']);

    const results = [];
    await new Promise((resolve) => {
        const observer = new QueryObserver(client, { queryKey: ['observed'], queryFn: get('/echo?observed') });
        const unsubscribe = observer.subscribe(({ status, data }) => {
            results.push(`${status} ${data?.target}`);
            if (status === 'success') {
                unsubscribe();
                resolve();
            }
        });
    });
    equal(results.at(-1), 'success /echo?observed');
    client.clear();
    done();
})();
