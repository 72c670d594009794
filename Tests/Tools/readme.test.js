'use strict';
// The README's examples are the programs that are built, and they do what it says.

const { test } = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { temporaryFolder } = require('./folder.js');

const project = path.join(__dirname, '../..');
const readme = fs.readFileSync(`${project}/README.md`, 'utf8');

test('the README shows the programs as they are built', () => {
    const shown = [...readme.matchAll(/```cpp\n([^]*?)```/g)].map((match) => match[1]);
    const built = ['embedding', 'subscribing', 'drafts'].map((name) =>
        fs.readFileSync(`${project}/Examples/${name}/main.cpp`, 'utf8'),
    );
    assert.deepStrictEqual(shown, built);
});

for (const [name, printed] of [
    ['subscribing', '{"adapterId":"getAccounts","limit":2}\nexecuteAdapter error - .executeAdapterTimeout\n'],
    ['drafts', 'd1: Account\n'],
]) {
    test(`the program of ${name} prints what the runtime has`, () => {
        const { status, stdout, stderr } = spawnSync(`${process.env.ZEM_BUILD}/bin/zem-example-${name}`, [], {
            encoding: 'utf8',
            timeout: 120_000,
        });
        assert.deepStrictEqual({ status, stdout }, { status: 0, stdout: printed }, stderr);
    });
}

test('the program writes nothing under a key that cannot be kept', (context) => {
    const folder = temporaryFolder(context);
    const { status, stdout, stderr } = spawnSync(`${process.env.ZEM_BUILD}/bin/zem-example-embedding`, [], {
        cwd: folder,
        encoding: 'utf8',
        // No key store of whoever runs the tests is touched.
        env: { ...process.env, DBUS_SESSION_BUS_ADDRESS: `unix:path=${folder}/no-bus` },
        timeout: 120_000,
    });
    assert.deepStrictEqual({ status, stdout, stderr }, {
        status: 1,
        stdout: '',
        stderr: 'the new secret com.quorvane.ZEM.SQLiteStoreKey could not be kept by the key store\n',
    });
    assert.ok(!fs.existsSync(`${folder}/zem-data/zem.db`));
});
