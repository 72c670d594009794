import * as Comlink from 'comlink';

import { done, equal } from '../../Globals/bundles/check.js';

class Counter {
    constructor(start) {
        this.count = start;
    }
    add(by) {
        this.count += by;
        return this.count;
    }
}

const service = {
    name: 'service',
    nested: { double: (n) => n * 2 },
    Counter,
    async sum(list) {
        return list.reduce((a, b) => a + b, 0);
    },
    fail() {
        throw new RangeError('refused');
    },
    async each(list, callback) {
        for (const item of list) await callback(item);
        return 'all';
    },
    sizeOf: (buffer) => buffer.byteLength,
    counter: () => Comlink.proxy(new Counter(10)),
};

(async () => {
    const { port1, port2 } = new MessageChannel();
    Comlink.expose(service, port1);
    const remote = Comlink.wrap(port2);

    equal([await remote.name, await remote.sum([1, 2, 3]), await remote.nested.double(4)], ['service', 6, 8]);
    await (remote.name = 'renamed');
    equal([await remote.name, service.name], ['renamed', 'renamed']);

    let failure;
    await remote.fail().catch((error) => {
        failure = error;
    });
    equal([failure instanceof Error, failure.name, failure.message], [true, 'RangeError', 'refused']);

    // A callback goes along as a port.
    const heard = [];
    equal(await remote.each(['a', 'b'], Comlink.proxy((item) => heard.push(item))), 'all');
    equal(heard, ['a', 'b']);

    const buffer = new ArrayBuffer(8);
    equal([await remote.sizeOf(Comlink.transfer(buffer, [buffer])), buffer.byteLength], [8, 0]);

    const made = await new remote.Counter(5);
    equal([await made.add(2), await made.count], [7, 7]);
    const returned = await remote.counter();
    equal(await returned.add(1), 11);
    returned[Comlink.releaseProxy]();
    let released;
    try {
        returned.add;
    } catch (error) {
        released = error.message;
    }
    equal(released, 'Proxy has been released and is not useable');

    const endpoint = await remote[Comlink.createEndpoint]();
    equal(await Comlink.wrap(endpoint).sum([4, 5]), 9);
    done();
    // Neither port is closed: the run ends all the same.
})();
