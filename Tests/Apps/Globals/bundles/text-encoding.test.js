import { done, equal, throws } from './check.js';

const encode = (text) => [...new TextEncoder().encode(text)];
const bytes = (...values) => new Uint8Array(values);
const decode = (values, options) => new TextDecoder('utf-8', options).decode(bytes(...values));

equal(encode('aé€😀'), [0x61, 0xc3, 0xa9, 0xe2, 0x82, 0xac, 0xf0, 0x9f, 0x98, 0x80]);
equal(encode('a\0b'), [97, 0, 98]);
equal(encode('\ud800x'), [0xef, 0xbf, 0xbd, 0x78]);
equal(encode(), []);
equal(new TextEncoder().encoding, 'utf-8');
const into = new Uint8Array(4);
equal(new TextEncoder().encodeInto('a€é', into), { read: 2, written: 4 });
equal([...into], [0x61, 0xe2, 0x82, 0xac]);

equal(decode(encode('aé€😀\0')), 'aé€😀\0');
equal(decode([]), '');
equal(new TextDecoder().decode(), '');
equal(new TextDecoder().encoding, 'utf-8');
equal(new TextDecoder('UTF8').encoding, 'utf-8');
equal(new TextDecoder('utf-16').encoding, 'utf-16le');
equal(new TextDecoder('latin1').encoding, 'windows-1252');
throws(() => new TextDecoder('nonsense'), 'RangeError', 'Unknown encoding');

// Each maximal part of invalid UTF-8 becomes one U+FFFD; of overlong forms and surrogates, each byte.
equal(decode([0x61, 0xff, 0x62]), 'a\ufffdb');
equal(decode([0xe2, 0x82]), '\ufffd');
equal(decode([0xe2, 0x82, 0x41]), '\ufffdA');
equal(decode([0xc0, 0x80]), '\ufffd\ufffd');
equal(decode([0xed, 0xa0, 0x80]), '\ufffd\ufffd\ufffd');
equal(decode([0xf0, 0x9f, 0x98]), '\ufffd');
equal(decode([0xf4, 0x90, 0x80, 0x80]), '\ufffd\ufffd\ufffd\ufffd');

// fatal
equal(new TextDecoder('utf-8', { fatal: true }).fatal, true);
equal(new TextDecoder().fatal, false);
for (const wrong of [[0xff], [0xe2, 0x82], [0xc0, 0x80], [0xed, 0xa0, 0x80]]) {
    equal((() => {
        try {
            return decode(wrong, { fatal: true });
        } catch (error) {
            return error instanceof TypeError;
        }
    })(), true);
}
equal(decode(encode('é'), { fatal: true }), 'é');

// ignoreBOM
equal(decode([0xef, 0xbb, 0xbf, 0x61]), 'a');
equal(decode([0xef, 0xbb, 0xbf, 0x61], { ignoreBOM: true }), '\ufeffa');
equal(decode([0x61, 0xef, 0xbb, 0xbf]), 'a\ufeff');
equal(new TextDecoder('utf-8', { ignoreBOM: true }).ignoreBOM, true);

// stream
const decoder = new TextDecoder();
equal(decoder.decode(bytes(0xf0, 0x9f), { stream: true }), '');
equal(decoder.decode(bytes(0x98, 0x80, 0xe2), { stream: true }), '😀');
equal(decoder.decode(), '\ufffd');

// Every kind of buffer, and a part of one.
const buffer = bytes(0x78, 0x61, 0x62, 0x79).buffer;
equal(new TextDecoder().decode(buffer), 'xaby');
equal(new TextDecoder().decode(new Uint8Array(buffer, 1, 2)), 'ab');
equal(new TextDecoder().decode(new DataView(buffer, 2)), 'by');
done();
