'use strict';
// Each rule of tools/check-texts, broken once in a tree made for it.

const { test } = require('node:test');
const assert = require('node:assert');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { temporaryFolder } = require('./folder.js');

const tool = path.join(__dirname, '../../tools/check-texts');

const good = {
    'tools/debian-packages.txt': '# a comment\ncmake\nnodejs node 18\n',
    'package.json': '{"dependencies": {"core-js": "1.0.0"}, "devDependencies": {"esbuild": "1.0.0"}}',
    'package-lock.json': '{"packages": {"node_modules/core-js": {"version": "1.0.0", "integrity": "sha512-abc"}}}',
    'docs/architecture.md': '<!-- packages -->\n| package | why |\n|---|---|\n' +
        '| `cmake`, `nodejs` | one |\n| `core-js` | two |\n| `esbuild` | three |\n<!-- /packages -->\n',
};

function check(context, tree) {
    const root = temporaryFolder(context, { ...good, ...tree });
    spawnSync('git', ['init', '--quiet', root]);
    const { status, stdout, stderr } = spawnSync(process.execPath, [tool, root], { encoding: 'utf8' });
    return { status, output: stdout + stderr };
}

function refuses(context, tree, ...complaints) {
    assert.deepStrictEqual(check(context, tree), { status: 1, output: complaints.map((line) => `${line}\n`).join('') });
}

test('a tree without a fault passes', (context) => {
    const innocent = 'a relative/work/folder, ${HOME}/root/x, https://example.org/registry, XXXXXX, HACKS\n';
    assert.deepStrictEqual(check(context, { 'a.txt': innocent }), {
        status: 0,
        output: 'tools/check-texts: 5 files, 4 packages explained\n',
    });
});

test('no file holds an unfinished thought', (context) => {
    for (const word of ['TO' + 'DO', 'FIX' + 'ME', 'XX' + 'X', 'HA' + 'CK']) {
        refuses(context, { 'Sources/a.cpp': `\n// ${word}: later\n` },
            `Sources/a.cpp:2: "${word}": an unfinished thought: finish it or leave it out`);
    }
});

test('no file names a path of one machine', (context) => {
    for (const folder of ['/wo' + 'rk/', '/ro' + 'ot/', '/ho' + 'me/', '/tmp/ba' + 'sh']) {
        refuses(context, { 'a.md': `see ${folder}x\n` }, `a.md:1: "${folder}": a path of one machine`);
    }
});

test('no file holds the address of a package registry', (context) => {
    for (const address of ['//regis' + 'try.example.org', '//www.npm' + 'js.com', '//deb.deb' + 'ian.org']) {
        refuses(context, { 'a.sh': `get https:${address}/x\n` }, `a.sh:1: "${address}": the address of a package registry`);
    }
});

test('no test is left out', (context) => {
    refuses(context, { 'Tests/a.cpp': 'TEST(Queue, DISABLED' + '_Runs) {}\n' },
        'Tests/a.cpp:1: "DISABLED' + '_R": a test that does not run');
});

test('a lock file holds no download address', (context) => {
    const lock = JSON.stringify({ packages: { 'node_modules/core-js': { resolved: 'https://example.org/core-js.tgz' } } });
    refuses(context, { 'package-lock.json': lock },
        'package-lock.json: the lock file/packages/node_modules/core-js holds a download address');
});

test('what is installed and what is explained are the same', (context) => {
    refuses(context, { 'tools/debian-packages.txt': 'cmake\nnodejs node 18\nninja-build\n' },
        'docs/architecture.md: does not say why ninja-build is installed');
    refuses(context, { 'tools/debian-packages.txt': 'nodejs node 18\n' },
        'docs/architecture.md: explains cmake, which nothing installs');
    refuses(context, { 'package.json': '{"dependencies": {"core-js": "1.0.0", "more": "1.0.0"}, "devDependencies": {"esbuild": "1.0.0"}}' },
        'docs/architecture.md: does not say why more is installed');
    refuses(context, { 'docs/architecture.md': good['docs/architecture.md'].replace('`core-js`', '`core-js`, `cmake`') },
        'docs/architecture.md: explains cmake twice');
});
