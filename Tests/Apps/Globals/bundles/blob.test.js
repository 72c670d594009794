import { classes, done, equal, throws } from './check.js';

classes({ Blob: 0, File: 2 });

(async () => {
    const bytes = new Uint8Array([97, 98, 99, 100]);
    for (const [parts, text] of [
        [undefined, ''],
        [[], ''],
        [['é😀', 5, null], 'é😀5null'],
        [[bytes, bytes.buffer, bytes.subarray(1, 3), new DataView(bytes.buffer, 3)], 'abcdabcdbcd'],
        [[new Blob(['in', new Blob(['ner'])]), new File(['!'], 'f')], 'inner!'],
        [new Set(['any', 'iterable']), 'anyiterable'],
        [['\ud800'], '\ufffd'],
        [['a\r\nb\rc'], 'a\r\nb\rc'],
    ]) {
        const blob = new Blob(parts);
        equal([await blob.text(), blob.size], [text, new TextEncoder().encode(text).length]);
    }
    equal(await new Blob(['a\r\nb\rc\n'], { endings: 'native' }).text(), 'a\nb\nc\n');

    const blob = new Blob([bytes], { type: 'Text/Plain;charset=UTF-8' });
    bytes[0] = 0;
    equal([blob.type, new Blob([], { type: 'ä' }).type, new Blob([]).type], ['text/plain;charset=utf-8', '', '']);
    const buffer = await blob.arrayBuffer();
    new Uint8Array(buffer)[0] = 0;
    equal([buffer instanceof ArrayBuffer, [...await blob.bytes()]], [true, [97, 98, 99, 100]]);
    for (const [range, text] of [[[], 'abcd'], [[1], 'bcd'], [[1, 3], 'bc'], [[-2], 'cd'], [[0, -1], 'abc'], [[3, 1], ''],
        [[0, 99], 'abcd'], [[-99, 2], 'ab']]) {
        const slice = blob.slice(...range);
        equal([await slice.text(), slice.type, slice instanceof Blob], [text, '', true]);
    }
    equal(await blob.slice(1).slice(1, 2).text(), 'c');
    equal(blob.slice(0, 1, 'A/B').type, 'a/b');

    const file = new File(['x'], 'ü "1".txt', { type: 'text/plain', lastModified: 12.7 });
    equal([file instanceof Blob, file.name, file.type, file.size, file.lastModified, await file.text()],
        [true, 'ü "1".txt', 'text/plain', 1, 12, 'x']);
    equal(Math.abs(new File([], 'n').lastModified - Date.now()) < 60000, true);
    equal([String(blob), String(file), Object.keys(file)], ['[object Blob]', '[object File]', []]);

    for (const wrong of ['text', 5, null, {}]) {
        throws(() => new Blob(wrong), 'TypeError', 'Blob: expected an array of parts');
    }
    throws(() => new Blob([], 5), 'TypeError', 'Blob: the options are not an object');
    throws(() => new Blob([], { endings: 'x' }), 'TypeError', 'Blob: endings are transparent or native');
    throws(() => new File([]), 'TypeError', 'File: expected 2 arguments, found 1');

    const copy = structuredClone({ blob, file });
    equal([await copy.blob.text(), copy.blob.type, copy.file.name, copy.file.lastModified],
        ['abcd', 'text/plain;charset=utf-8', 'ü "1".txt', 12]);
    done();
})();
