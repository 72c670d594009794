'use strict';
// The README's example of embedding is the program that is built, and it does what it says.

const { test } = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { temporaryFolder } = require('./folder.js');

const project = path.join(__dirname, '../..');
const readme = fs.readFileSync(`${project}/README.md`, 'utf8');

test('the README shows the program as it is built', () => {
    const shown = /```cpp\n([^]*?)```/.exec(readme);
    assert.ok(shown, 'the README has no C++ in it');
    assert.strictEqual(shown[1], fs.readFileSync(`${project}/Examples/embedding/main.cpp`, 'utf8'));
});

test('the program opens a store and counts its entries', (context) => {
    const folder = temporaryFolder(context);
    const { status, stdout, stderr } = spawnSync(`${process.env.ZEM_BUILD}/bin/zem-example-embedding`, [], {
        cwd: folder,
        encoding: 'utf8',
        // No key store of whoever runs the tests is touched.
        env: { ...process.env, DBUS_SESSION_BUS_ADDRESS: `unix:path=${folder}/no-bus` },
        timeout: 120_000,
    });
    assert.deepStrictEqual({ status, stdout }, { status: 0, stdout: '0 entries\n' }, stderr);
    assert.ok(fs.existsSync(`${folder}/zem-data/zem.db`));
});
