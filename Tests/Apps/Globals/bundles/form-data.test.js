import { done, equal, throws } from './check.js';

equal([typeof FormData, FormData.name, String(new FormData())], ['function', 'FormData', '[object FormData]']);
const form = new FormData();
form.append('a', 1);
form.append('b', 'x');
form.append('a', 'second');
form.append('f', new Blob(['blob'], { type: 'text/plain' }));
form.append('f', new Blob(['named']), 'n.txt');
const own = new File(['file'], 'own.txt');
form.append('g', own);
equal([form.get('a'), form.get('none'), form.getAll('a'), form.has('b'), form.has('none')],
    ['1', null, ['1', 'second'], true, false]);
equal([...form.keys()], ['a', 'b', 'a', 'f', 'f', 'g']);
equal(form.getAll('f').map((file) => [file instanceof File, file.name, file.type]),
    [[true, 'blob', 'text/plain'], [true, 'n.txt', '']]);
equal([form.get('g') === own, form instanceof FormData], [true, true]);
form.set('a', 'only');
form.delete('f');
equal([...form].map(([name, value]) => `${name} ${typeof value}`), ['a string', 'b string', 'g object']);
const seen = [];
form.forEach((value, name) => seen.push(name));
equal(seen, ['a', 'b', 'g']);
throws(() => form.append('a'), 'TypeError',
    "Failed to execute 'append' on 'FormData': 2 arguments required, but only 1 present.");
done();
