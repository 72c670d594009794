import { classes, done, equal, throws, turn } from './check.js';

classes({ MessageChannel: 0, MessagePort: 0 });
equal(MessagePort.prototype.postMessage.length, 1);
throws(() => new MessagePort(), 'TypeError', 'Illegal constructor');

const order = [];
const taken = () => order.splice(0);
const { port1, port2 } = new MessageChannel();
equal([port1 instanceof MessagePort, port1 instanceof EventTarget, port1 === port2, port1.onmessage],
    [true, true, false, null]);

async function deliver() {
    // Each in a turn of its own, in order; nothing before the port is started.
    port1.postMessage('first');
    port1.postMessage('second');
    port2.addEventListener('message', (event) => {
        order.push(`${event.data} ${event instanceof MessageEvent} ${event.target === port2} ${event.ports.length}`);
        Promise.resolve().then(() => order.push(`after ${event.data}`));
    });
    await turn();
    equal(taken(), []);
    port2.start();
    port2.start();
    setTimeout(() => order.push('timer'));
    port1.postMessage('third');
    equal(taken(), []);
    await turn();
    equal(taken(), ['first true true 0', 'after first', 'second true true 0', 'after second', 'timer',
        'third true true 0', 'after third']);
}

async function copy() {
    const channel = new MessageChannel();
    const message = { list: [1, { deep: new Map([['k', 1n]]) }], when: new Date(5), self: null };
    message.self = message;
    const bytes = new Uint8Array([1, 2]);
    const blob = new Blob(['text'], { type: 'text/plain' });
    let received;
    // The attribute starts the port.
    channel.port2.onmessage = ({ data }) => {
        received = data;
    };
    channel.port1.postMessage({ message, bytes, blob, file: new File(['f'], 'n', { lastModified: 7 }) }, [bytes.buffer]);
    message.list.push('later');
    await turn();
    equal([received.message.list.length, received.message.list[1].deep.get('k'), received.message.when.getTime(),
        received.message.self === received.message, received.message === message], [2, 1n, 5, true, false]);
    equal([[...received.bytes], bytes.length], [[1, 2], 0]);
    equal([received.blob instanceof Blob, await received.blob.text(), received.blob.type],
        [true, 'text', 'text/plain']);
    equal([received.file instanceof File, await received.file.text(), received.file.name, received.file.lastModified],
        [true, 'f', 'n', 7]);
    throws(() => channel.port1.postMessage(() => {}), 'DataCloneError', 'Uncloneable type: Function');
    throws(() => channel.port1.postMessage(), 'TypeError', 'MessagePort.postMessage: expected 1 arguments, found 0');
}

async function transfer() {
    const outer = new MessageChannel();
    const inner = new MessageChannel();
    inner.port1.onmessage = ({ data }) => order.push(`inner ${data}`);
    // Sent before the port is: they go with it.
    inner.port1.postMessage('early');
    let port;
    outer.port2.onmessage = ({ data, ports }) => {
        order.push(`${ports.length} ${data.port === ports[0]} ${data.again.get('p') === ports[0]}`);
        [port] = ports;
    };
    const moved = inner.port2;
    for (const wrong of [{ moved }, new Set([moved])]) {
        throws(() => outer.port1.postMessage(wrong), 'DataCloneError', 'Uncloneable type: MessagePort');
    }
    throws(() => outer.port1.postMessage([moved, () => {}], [moved]), 'DataCloneError', 'Uncloneable type: Function');
    outer.port1.postMessage({ port: moved, again: new Map([['p', moved]]) }, { transfer: [moved] });
    equal([String(moved), Object.keys(moved)], ['[object MessagePort]', []]);
    await turn();
    equal(taken(), ['1 true true']);
    equal([port === moved, port instanceof MessagePort], [false, true]);
    port.postMessage('through the new one');
    port.onmessage = ({ data }) => order.push(`moved ${data}`);
    inner.port1.postMessage('late');
    moved.postMessage('through the old one');
    await turn();
    await turn();
    equal(taken(), ['inner through the new one', 'moved early', 'moved late']);

    const wrong = [
        [outer.port1, 'a port cannot be sent through itself'],
        [moved, 'a port is closed, or was transferred before'],
    ];
    for (const [one, reason] of wrong) {
        throws(() => outer.port1.postMessage(0, [one]), 'DataCloneError', `MessagePort.postMessage: ${reason}`);
    }
    const other = new MessageChannel().port1;
    throws(() => outer.port1.postMessage(0, [other, other]), 'DataCloneError',
        'MessagePort.postMessage: a port is transferred twice');
}

async function close() {
    const channel = new MessageChannel();
    channel.port2.onmessage = ({ data }) => order.push(data);
    channel.port2.onclose = ({ type }) => order.push(type);
    channel.port1.onmessage = () => order.push('never');
    channel.port1.onclose = () => order.push('never');
    channel.port1.postMessage('sent before');
    channel.port2.postMessage('lost');
    channel.port1.close();
    channel.port1.close();
    channel.port1.postMessage('never');
    channel.port2.postMessage('never');
    await turn();
    await turn();
    equal(taken(), ['sent before', 'close']);
}

(async () => {
    await deliver();
    await copy();
    await transfer();
    await close();
    done();
    // An open port with a listener does not keep the run: this one is never closed.
    new MessageChannel().port1.onmessage = () => {};
})();
