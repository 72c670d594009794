import { classes, done, equal, throws } from './check.js';

classes({ Event: 1, EventTarget: 0, CustomEvent: 1, MessageEvent: 1 });
equal([EventTarget.prototype.addEventListener.length, EventTarget.prototype.removeEventListener.length,
    EventTarget.prototype.dispatchEvent.length], [2, 2, 1]);

const order = [];
const note = (...words) => order.push(words.join(' '));
const taken = () => order.splice(0);

// The properties of an event.
const plain = new Event('plain');
equal([plain.type, plain.bubbles, plain.cancelable, plain.composed, plain.defaultPrevented, plain.isTrusted,
    plain.target, plain.srcElement, plain.currentTarget, plain.eventPhase, plain.composedPath().length,
    plain.returnValue, plain.cancelBubble],
['plain', false, false, false, false, false, null, null, null, 0, 0, true, false]);
equal([Event.NONE, Event.CAPTURING_PHASE, Event.AT_TARGET, Event.BUBBLING_PHASE, plain.AT_TARGET], [0, 1, 2, 3, 2]);
equal([new Event('x', { bubbles: 1, cancelable: 'y', composed: {} })].map((event) =>
    [event.bubbles, event.cancelable, event.composed])[0], [true, true, true]);
equal(new Event(7).type, '7');
equal(new Event('x', null).bubbles, false);
equal(new Event('x').timeStamp <= performance.now() && new Event('x').timeStamp >= plain.timeStamp, true);
throws(() => new Event(), 'TypeError', 'Event: expected 1 arguments, found 0');
throws(() => new Event('x', 5), 'TypeError', 'Event: the options are not an object');

// A dispatch: listeners that capture first, then the others, each in the order of adding.
const target = new EventTarget();
const seen = (name) => function (event) {
    note(name, this === target, event.target === target, event.currentTarget === target, event.eventPhase,
        event.composedPath()[0] === target);
};
target.addEventListener('go', seen('first'));
target.addEventListener('go', { handleEvent: (event) => note('object', event.type) });
target.addEventListener('go', seen('capturing'), true);
target.addEventListener('go', seen('capturing by options'), { capture: true });
target.addEventListener('other', seen('never'));
target.addEventListener('go', null);
const go = new Event('go');
equal(target.dispatchEvent(go), true);
equal(taken(), ['capturing true true true 2 true', 'capturing by options true true true 2 true',
    'first true true true 2 true', 'object go']);
// Libraries read the target later.
equal([go.target === target, go.currentTarget, go.eventPhase, go.composedPath().length], [true, null, 0, 0]);
equal(new EventTarget().dispatchEvent(go), true);
equal(go.target === target, false);

// One listener is one for each type and phase; it goes as it came.
const twice = new EventTarget();
const once = () => note('listener');
twice.addEventListener('go', once);
twice.addEventListener('go', once, { once: true });
twice.addEventListener('go', once, true);
twice.dispatchEvent(go);
twice.dispatchEvent(go);
equal(taken(), ['listener', 'listener', 'listener', 'listener']);
twice.removeEventListener('go', once);
twice.removeEventListener('go', () => {});
twice.dispatchEvent(go);
equal(taken(), ['listener']);
twice.removeEventListener('go', once, { capture: true });
twice.dispatchEvent(go);
equal(taken(), []);

twice.addEventListener('go', () => {
    note('once');
    twice.dispatchEvent(new Event('go'));
}, { once: true });
twice.dispatchEvent(go);
twice.dispatchEvent(go);
equal(taken(), ['once']);

// A listener added during a dispatch waits for the next one; a removed listener is not called.
const changing = new EventTarget();
const removed = () => note('removed');
changing.addEventListener('go', () => {
    note('changes');
    changing.removeEventListener('go', removed);
    changing.addEventListener('go', () => note('added'), { once: true });
}, { once: true });
changing.addEventListener('go', removed);
changing.dispatchEvent(go);
equal(taken(), ['changes']);
changing.dispatchEvent(go);
equal(taken(), ['added']);

// Signals take listeners away.
const controller = new AbortController();
const signaled = new EventTarget();
signaled.addEventListener('go', () => note('signaled'), { signal: controller.signal });
signaled.dispatchEvent(go);
controller.abort();
signaled.dispatchEvent(go);
signaled.addEventListener('go', () => note('too late'), { signal: controller.signal });
signaled.dispatchEvent(go);
equal(taken(), ['signaled']);
throws(() => signaled.addEventListener('go', once, { signal: {} }), 'TypeError',
    'EventTarget.addEventListener: the signal is not an AbortSignal');

// Stopping and preventing.
const stopping = new EventTarget();
stopping.addEventListener('at once', (event) => {
    note('a');
    event.stopImmediatePropagation();
});
stopping.addEventListener('at once', () => note('never'));
stopping.addEventListener('after', (event) => {
    note('b');
    event.stopPropagation();
    equal(event.cancelBubble, true);
}, true);
stopping.addEventListener('after', () => note('c'), true);
stopping.addEventListener('after', () => note('never'));
stopping.addEventListener('prevent', (event) => event.preventDefault());
stopping.addEventListener('passive', (event) => event.preventDefault(), { passive: true });
for (const type of ['at once', 'after']) stopping.dispatchEvent(new Event(type));
equal(taken(), ['a', 'b', 'c']);
const before = new Event('at once');
before.stopPropagation();
stopping.dispatchEvent(before);
equal(taken(), []);
stopping.dispatchEvent(before);
equal(taken(), ['a']);
for (const [type, cancelable, passes] of [['prevent', true, false], ['prevent', false, true], ['passive', true, true]]) {
    const event = new Event(type, { cancelable });
    equal([stopping.dispatchEvent(event), event.defaultPrevented, event.returnValue], [passes, !passes, passes]);
}

stopping.addEventListener('nested', (event) => throws(() => stopping.dispatchEvent(event), 'InvalidStateError',
    'EventTarget.dispatchEvent: the event is being dispatched'));
stopping.dispatchEvent(new Event('nested'));
for (const wrong of [undefined, null, 'x', {}, { type: 'go' }]) {
    throws(() => target.dispatchEvent(wrong), 'TypeError', 'EventTarget.dispatchEvent: expected an Event');
}
throws(() => target.addEventListener('go'), 'TypeError',
    'EventTarget.addEventListener: expected 2 arguments, found 1');
throws(() => target.addEventListener('go', 'text'), 'TypeError',
    'EventTarget.addEventListener: the listener is neither a function nor an object');

// Events with more properties.
const custom = new CustomEvent('c', { detail: { deep: 1 }, cancelable: true });
equal([custom instanceof Event, custom.type, custom.detail.deep, custom.cancelable, new CustomEvent('d').detail],
    [true, 'c', 1, true, null]);
const message = new MessageEvent('m', { data: 5, origin: 'o', lastEventId: 'l', ports: [] });
equal([message instanceof Event, message.data, message.origin, message.lastEventId, message.source,
    message.ports.length, Object.isFrozen(message.ports)], [true, 5, 'o', 'l', null, 0, true]);
equal([new MessageEvent('m').data, new MessageEvent('m').origin], [null, '']);

// Classes of a bundle's own.
class Own extends EventTarget {
    #value = 1;
    tell() {
        this.dispatchEvent(new CustomEvent('told', { detail: this.#value }));
    }
}
const own = new Own();
own.addEventListener('told', ({ detail }) => note('told', detail));
own.tell();
equal(taken(), ['told 1']);
equal(Object.keys(own), []);

// A bundle that changes what arrays, functions and maps do disturbs no dispatch.
const { call, apply } = Function.prototype;
Function.prototype.call = Function.prototype.apply = () => note('never');
target.dispatchEvent(new Event('go'));
Object.assign(Function.prototype, { call, apply });
equal(taken().length, 4);
done();
