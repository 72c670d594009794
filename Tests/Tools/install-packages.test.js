'use strict';
// tools/install-packages on machines that are made up: the commands that it calls are scripts which
// write down what they are asked.

const { test } = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { temporaryFolder, fill } = require('./folder.js');

const tool = fs.readFileSync(path.join(__dirname, '../../tools/install-packages'), 'utf8');
assert(tool.includes('((EUID != 0))'), 'where the tool asks who it is');

// A machine that has `installed`, and commands that answer --version with `versions`. Commands it
// lacks are not found, even where the machine that runs this test has them.
function machine(context, { list, installed, versions = {}, sudo = false, lock = '{}', root = true }) {
    const folder = temporaryFolder(context, {
        'project/tools/install-packages': tool.replace('((EUID != 0))', root ? '((0 != 0))' : '((1 != 0))'),
        'project/tools/debian-packages.txt': list,
        'project/package-lock.json': lock,
        'installed': installed.map((name) => `${name}\n`).join(''),
        'transcript': '',
        'bin/dpkg-query': '#!/bin/sh\nfor last; do :; done\ngrep -qx "$last" "$MACHINE/installed" && printf "ii "\n',
        'bin/apt-get': '#!/bin/sh\necho "apt-get $*" >>"$MACHINE/transcript"\n' +
            '[ "$1" = update ] || { echo "$DEBIAN_FRONTEND" >>"$MACHINE/transcript"\n' +
            'for name; do echo "$name" >>"$MACHINE/installed"; done; }\n',
        'bin/npm': '#!/bin/sh\n[ "$1" != --version ] || { echo 9.2.0; exit; }\n' +
            'echo "npm $*" >>"$MACHINE/transcript"\nrm -rf node_modules\nmkdir node_modules\n',
    });
    for (const [command, version] of Object.entries(versions)) {
        fill(folder, { [`bin/${command}`]: `#!/bin/sh\necho ${version}\n` });
    }
    if (sudo) fill(folder, { 'bin/sudo': '#!/bin/sh\necho sudo >>"$MACHINE/transcript"\nexec "$@"\n' });
    for (const command of ['bash', 'dirname', 'grep', 'cmp', 'cp', 'rm', 'mkdir', 'env', 'sh']) {
        const found = spawnSync('sh', ['-c', `command -v ${command}`], { encoding: 'utf8' }).stdout.trim();
        fs.symlinkSync(found, path.join(folder, 'bin', command));
    }
    return {
        folder,
        run() {
            fs.writeFileSync(path.join(folder, 'transcript'), '');
            const { status, stderr } = spawnSync(path.join(folder, 'bin/bash'), [path.join(folder, 'project/tools/install-packages')], {
                encoding: 'utf8',
                env: { PATH: path.join(folder, 'bin'), MACHINE: folder },
            });
            const transcript = fs.readFileSync(path.join(folder, 'transcript'), 'utf8').split('\n').slice(0, -1);
            return { status, stderr, transcript };
        },
    };
}

test('installs what is missing, and on a second call nothing', (context) => {
    const { run } = machine(context, { list: '# a comment\ncmake\ng++\nmake\n', installed: ['make'] });
    assert.deepStrictEqual(run(), {
        status: 0,
        stderr: '',
        transcript: [
            'apt-get update',
            'apt-get install --yes --no-install-recommends cmake g++',
            'noninteractive',
            'npm ci --ignore-scripts',
        ],
    });
    assert.deepStrictEqual(run(), { status: 0, stderr: '', transcript: [] });
});

test('a package whose command is there in a version that will do is not installed', (context) => {
    const list = 'nodejs node 18\n';
    const install = ['apt-get update', 'apt-get install --yes --no-install-recommends nodejs', 'noninteractive', 'npm ci --ignore-scripts'];
    for (const [version, transcript] of [
        ['v20.20.2', ['npm ci --ignore-scripts']],
        ['v18.0.0', ['npm ci --ignore-scripts']],
        ['v17.9.1', install],
        ['nonsense', install],
    ]) {
        assert.deepStrictEqual(machine(context, { list, installed: [], versions: { node: version } }).run().transcript, transcript, version);
    }
    assert.deepStrictEqual(machine(context, { list, installed: [] }).run().transcript, install);
});

test('npm fills node_modules again when the lock file has changed', (context) => {
    const { folder, run } = machine(context, { list: '', installed: [] });
    assert.deepStrictEqual(run().transcript, ['npm ci --ignore-scripts']);
    fill(folder, { 'project/package-lock.json': '{"changed": true}' });
    assert.deepStrictEqual(run().transcript, ['npm ci --ignore-scripts']);
    assert.deepStrictEqual(run().transcript, []);
});

test('whoever is not root is asked for sudo, and only when something is missing', (context) => {
    const { run } = machine(context, { list: 'cmake\n', installed: [], root: false, sudo: true });
    assert.deepStrictEqual(run().transcript, [
        'sudo',
        'apt-get update',
        'sudo',
        'apt-get install --yes --no-install-recommends cmake',
        'noninteractive',
        'npm ci --ignore-scripts',
    ]);
    assert.deepStrictEqual(run().transcript, []);
});

test('without sudo it says what root has to run', (context) => {
    const { status, stderr, transcript } = machine(context, { list: 'cmake\ng++\n', installed: ['g++'], root: false }).run();
    assert.strictEqual(status, 1);
    assert.match(stderr, /only root may install packages, and there is no sudo; as root, run:\n {4}apt-get install --no-install-recommends cmake\n$/);
    assert.deepStrictEqual(transcript, []);
});
