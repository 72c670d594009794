import { done, equal } from './check.js';

const nameOf = (action) => {
    try {
        return action();
    } catch (error) {
        return [error.name, error instanceof DOMException, error.code];
    }
};
const wrong = ['InvalidCharacterError', true, 5];

equal(btoa(''), '');
equal(btoa('a'), 'YQ==');
equal(btoa('ab'), 'YWI=');
equal(btoa('abc'), 'YWJj');
equal(btoa('\0\xff\xfe'), 'AP/+');
equal(nameOf(() => btoa('€')), wrong);
equal(atob(''), '');
equal(atob('YQ=='), 'a');
equal(atob('YQ'), 'a');
equal(atob(' Y W\nJj\t'), 'abc');
equal(atob('AP/+'), '\0\xff\xfe');
for (const text of ['Y', 'YQ=', 'Y===', 'YW=j', 'Y-_j', 'é']) equal(nameOf(() => atob(text)), wrong);
let every = '';
for (let value = 0; value < 256; value += 1) every += String.fromCharCode(value);
equal(atob(btoa(every)), every);
done();
