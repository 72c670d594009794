import { classes, done, equal, throws } from './check.js';

classes({ Headers: 0 });
const list = (headers) => [...headers].map((pair) => pair.join('='));

for (const [init, expected] of [
    [undefined, []],
    [{ 'X-Two': 'b', 'x-one': 5, empty: '' }, ['empty=', 'x-one=5', 'x-two=b']],
    [[['A', '1'], ['b', '2'], ['a', '3']], ['a=1, 3', 'b=2']],
    [new Map([['k', 'v']]), ['k=v']],
    [new Headers({ a: 'x' }), ['a=x']],
    [{ a: ' \t padded \n' }, ['a=padded']],
    [{ a: 'é' }, ['a=é']],
    [Object.create({ inherited: '1' }), []],
]) {
    equal(list(new Headers(init)), expected);
}

const headers = new Headers();
headers.append('Accept', 'a');
headers.append('accept', 'b');
headers.set('X', 'old');
headers.set('x', 'new');
equal([headers.get('ACCEPT'), headers.get('x'), headers.get('none'), headers.has('X'), headers.has('none')],
    ['a, b', 'new', null, true, false]);
headers.delete('X');
headers.delete('none');
equal(headers.has('x'), false);
headers.append('Set-Cookie', 'a=1; Expires=Wed, 21 Oct 2026 07:28:00 GMT');
headers.append('set-cookie', 'b=2');
equal(headers.getSetCookie(), ['a=1; Expires=Wed, 21 Oct 2026 07:28:00 GMT', 'b=2']);
equal(list(headers), ['accept=a, b', 'set-cookie=a=1; Expires=Wed, 21 Oct 2026 07:28:00 GMT', 'set-cookie=b=2']);
equal([[...headers.keys()], [...headers.values()].length], [['accept', 'set-cookie', 'set-cookie'], 3]);
const seen = [];
headers.forEach(function (value, name, all) {
    seen.push(`${name} ${this.own} ${all === headers}`);
}, { own: 1 });
equal(seen, ['accept 1 true', 'set-cookie 1 true', 'set-cookie 1 true']);
equal(headers[Symbol.iterator] === headers.entries, true);
equal(Object.fromEntries(new Headers({ a: '1' })), { a: '1' });

for (const name of ['', 'a b', 'a:', 'ä', 'a\n']) {
    for (const act of [() => headers.get(name), () => headers.set(name, 'x'), () => new Headers({ [name]: 'x' })]) {
        throws(act, 'TypeError', 'Headers: the name of a field is not valid');
    }
}
for (const value of ['a\nb', 'a\rb', 'a\0b']) {
    throws(() => headers.append('x', value), 'TypeError', 'Headers: a value holds a line break or a NUL');
}
throws(() => headers.set('x', 'Ā'), 'TypeError', 'Headers: a value holds a character above U+00FF');
for (const wrong of [5, 'text', null]) {
    throws(() => new Headers(wrong), 'TypeError', 'Headers: expected Headers, an array of pairs or an object');
}
throws(() => new Headers([['a']]), 'TypeError', 'Headers: expected pairs of a name and a value');
throws(() => headers.append('x'), 'TypeError', 'Headers.append: expected 2 arguments, found 1');
done();
