'use strict';
// An application may have an SQLite of its own: ZEM's library exports none of SQLCipher's symbols.

const { test } = require('node:test');
const assert = require('node:assert');
const { execFileSync } = require('node:child_process');

const { NM, ZEM_LIBRARY } = process.env;

const names = (...options) => execFileSync(NM, ['--defined-only', '--format=just-symbols', ...options, ZEM_LIBRARY], { encoding: 'utf8', maxBuffer: 1 << 28 })
    .split('\n');
const cipher = (name) => /^(sqlite3|sqlcipher)/.test(name);

test('SQLCipher is inside the library, and none of its symbols is exported', () => {
    assert.ok(names().includes('sqlite3_open_v2'), 'SQLCipher is linked in');
    const exported = names('--dynamic');
    assert.ok(exported.some((name) => name.includes('zem')), 'the library exports its own');
    assert.deepStrictEqual(exported.filter(cipher), []);
});
