// A package as it comes from the registry, made for browsers and other engines; nothing in it knows the
// host.
import { inspect } from 'node-inspect-extracted';
import { fromHex, toHex } from '@exodus/bytes/hex.js';

import { done, equal } from './check.js';

equal(inspect({ a: [1, new Map([['k', 'v']])] }), "{ a: [ 1, Map(1) { 'k' => 'v' } ] }");
equal(toHex(new Uint8Array([0, 171, 255])), '00abff');
equal([...fromHex('00abff')], [0, 171, 255]);
done();
