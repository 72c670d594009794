import { debounceTime, filter, firstValueFrom, fromEvent, map, merge, of, scan, switchMap, take, takeUntil, timer, toArray } from 'rxjs';
import { fromFetch } from 'rxjs/fetch';

import { done, equal } from '../../Globals/bundles/check.js';

const [url] = host.args;

(async () => {
    const target = new EventTarget();
    const seen = [];
    const subscription = fromEvent(target, 'go').pipe(
        map((event) => event.detail),
        filter((value) => value % 2 === 1),
        scan((sum, value) => sum + value, 0),
        takeUntil(fromEvent(target, 'stop'))).subscribe({
        next: (sum) => seen.push(sum),
        complete: () => seen.push('complete'),
    });
    for (const detail of [1, 2, 3]) target.dispatchEvent(new CustomEvent('go', { detail }));
    target.dispatchEvent(new Event('stop'));
    target.dispatchEvent(new CustomEvent('go', { detail: 5 }));
    equal([seen, subscription.closed], [[1, 4, 'complete'], true]);

    const { port1, port2 } = new MessageChannel();
    const messages = firstValueFrom(fromEvent(port2, 'message').pipe(map(({ data }) => data), take(2), toArray()));
    port2.start();
    port1.postMessage('a');
    port1.postMessage('b');
    equal(await messages, ['a', 'b']);

    const settled = firstValueFrom(merge(of(1), of(2), timer(1).pipe(map(() => 3))).pipe(debounceTime(1), toArray()));
    equal((await settled).at(-1), 3);

    const answer = await firstValueFrom(of('/echo').pipe(
        switchMap((path) => fromFetch(url + path)), switchMap((response) => response.json())));
    equal([answer.method, answer.target], ['GET', '/echo']);
    // Unsubscribing aborts.
    const hanging = fromFetch(`${url}/hang`).subscribe(() => seen.push('never'));
    await fetch(`${url}/asked`);
    hanging.unsubscribe();
    equal(seen.length, 3);
    done();
})();
