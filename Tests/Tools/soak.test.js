'use strict';
// tools/soak with test programs that are shell scripts.

const { test } = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { spawn, spawnSync } = require('node:child_process');
const { once } = require('node:events');
const { temporaryFolder, fill } = require('./folder.js');

const tool = path.join(__dirname, '../../tools/soak');

// A build folder whose tests are `programs`: {name in ctest's list: what one round does}. A program has
// the test Suite.First; Suite.Second is there too where the filter is "*". It is called with the mode
// --engine=NAME.
function machine(context, programs, prefix = 'zem-tests-') {
    const folder = temporaryFolder(context);
    const list = Object.entries(programs).map(([name, round]) => {
        fill(folder, { [`bin/${prefix}${name}`]: '#!/bin/bash\n' +
            'case "$*" in *--gtest_list_tests*)\n' +
            '    case "$*" in *Nothing*) exit ;; esac\n' +
            '    echo "Suite."; echo "  First"\n' +
            '    case "$*" in *"=*"*) echo "  Second" ;; esac\n' +
            '    exit ;;\n' +
            `esac\ncd '${folder}'\n${round}\n` });
        return `add_test(${name} "${folder}/bin/${prefix}${name}" "--engine=${name}")\n` +
            `set_tests_properties(${name} PROPERTIES ENVIRONMENT "ONE=1;TWO=a=b")\n`;
    });
    fill(folder, { 'build/some/CTestTestfile.cmake': list.join('') });
    const words = (options) => [tool, 'build/some', ...options];
    const folders = () => fs.readdirSync(path.join(folder, 'build/soak'));
    // The folder of each soak has a name of its own.
    const plain = (text) => text.replace(/soak\/some-\w{6}\//g, 'soak/some/').replace(/[\d.]+ minutes/, 'M minutes');
    return {
        folder,
        start: (...options) => spawn(process.execPath, words(options), { cwd: folder }),
        soak(...options) {
            const { status, stdout, stderr } = spawnSync(process.execPath, words(options), { cwd: folder, encoding: 'utf8' });
            const lines = plain(stdout).split('\n').slice(0, -1);
            return { status, lines, stderr };
        },
        read: (file) => fs.readFileSync(path.join(folder, file), 'utf8'),
        // The outputs of each soak that kept any.
        kept: () => folders().map((name) => fs.readdirSync(path.join(folder, 'build/soak', name)).sort()),
        output: (name) => fs.readFileSync(path.join(folder, 'build/soak', folders()[0], name), 'utf8'),
    };
}

test('runs each program that often, as ctest would, and keeps nothing of what passed', (context) => {
    const { soak, read, kept } = machine(context, {
        'Room.inline': 'echo "$* $ONE $TWO" >>transcript',
        'Room.bound': 'echo "$* $ONE $TWO" >>transcript',
    });
    assert.deepStrictEqual(soak('--rounds=3', '--processes=2'), {
        status: 0,
        stderr: '',
        lines: [
            '',
            'Room.inline  2 tests  3 rounds',
            'Room.bound   2 tests  3 rounds',
            '',
            '0 of 6 rounds failed in M minutes, 2 at once',
        ],
    });
    const calls = ['bound', 'inline'].map((mode) => `--engine=Room.${mode} --gtest_filter=* 1 a=b`);
    assert.deepStrictEqual(read('transcript').trimEnd().split('\n').sort(), calls.flatMap((call) => [call, call, call]));
    assert.deepStrictEqual(kept(), []);
});

test('a filter goes to the programs that have such tests', (context) => {
    const { soak, read } = machine(context, { Room: 'echo "$*" >>transcript' });
    assert.deepStrictEqual(soak('--rounds=1', '--processes=1', '--filter=-*First').lines[1], 'Room  1 test  1 round');
    assert.strictEqual(read('transcript'), '--engine=Room --gtest_filter=-*First\n');
});

test('where no test is run it fails', (context) => {
    const { folder, soak } = machine(context, { Room: 'true' });
    const reason = (filter) => `tools/soak: no test of ${folder}/build/some matches the filter ${filter}\n`;
    assert.deepStrictEqual(soak('--filter=Nothing*'), { status: 1, lines: [], stderr: reason('Nothing*') });
    fs.rmSync(path.join(folder, 'bin'), { recursive: true });
    assert.deepStrictEqual(soak(), { status: 1, lines: ['not built, so not run: Room'], stderr: reason('*') });
    const other = machine(context, { Room: 'true' }, 'other-');
    assert.match(other.soak().stderr, /no test of .* matches the filter \*\n$/);
});

test('runs so many processes at once and no more', (context) => {
    // Each waits at its own end of the fifo for the other.
    const meeting = machine(context, { Reader: 'read line <fifo', Writer: 'echo line >fifo' });
    spawnSync('mkfifo', [path.join(meeting.folder, 'fifo')]);
    assert.strictEqual(meeting.soak('--rounds=2', '--processes=2').status, 0);
    const alone = machine(context, { One: 'echo begin >>transcript; echo end >>transcript', Other: 'echo begin >>transcript; echo end >>transcript' });
    assert.strictEqual(alone.soak('--rounds=5', '--processes=1').status, 0);
    assert.strictEqual(alone.read('transcript'), 'begin\nend\n'.repeat(10));
});

test('says what failed, and where its output is', (context) => {
    const begin = 'echo "[ RUN      ] Suite.First"';
    const { soak, output, kept } = machine(context, {
        Passes: `${begin}; echo "[       OK ] Suite.First (1 ms)"`,
        Fails: `${begin}; echo "[  FAILED  ] Suite.First (1 ms)"; echo "[ RUN      ] Suite.Second"; ` +
            'echo "[  FAILED  ] Suite.Second, where GetParam() = 1 (1 ms)"; echo "[  FAILED  ] 1 test, listed below:"; ' +
            'echo "[  FAILED  ] Suite.First"; exit 1',
        Crashes: `${begin}; echo crashed >&2; kill -SEGV $$`,
        Exits: `${begin}; echo "[       OK ] Suite.First (1 ms)"; exit 66`,
        Begins: 'exit 2',
        Often: `${begin}; [ -e failed ] || { touch failed; exit 1; }`,
    });
    assert.deepStrictEqual(soak('--rounds=2', '--processes=1'), {
        status: 1,
        stderr: '',
        lines: [
            'Fails failed Suite.First, Suite.Second: build/soak/some/Fails-1.txt',
            'Crashes SIGSEGV in Suite.First: build/soak/some/Crashes-1.txt',
            'Exits exit code 66 after Suite.First: build/soak/some/Exits-1.txt',
            'Begins exit code 2 before the first test: build/soak/some/Begins-1.txt',
            'Often exit code 1 in Suite.First: build/soak/some/Often-1.txt',
            'Fails failed Suite.First, Suite.Second: build/soak/some/Fails-2.txt',
            'Crashes SIGSEGV in Suite.First: build/soak/some/Crashes-2.txt',
            'Exits exit code 66 after Suite.First: build/soak/some/Exits-2.txt',
            'Begins exit code 2 before the first test: build/soak/some/Begins-2.txt',
            '',
            'Passes   2 tests  2 rounds',
            'Fails    2 tests  2 rounds  2 failed',
            'Crashes  2 tests  2 rounds  2 failed',
            'Exits    2 tests  2 rounds  2 failed',
            'Begins   2 tests  2 rounds  2 failed',
            'Often    2 tests  2 rounds  1 failed',
            '',
            'Fails failed Suite.First, Suite.Second: 2 times',
            '    build/soak/some/Fails-1.txt',
            '    build/soak/some/Fails-2.txt',
            '',
            'Crashes SIGSEGV in Suite.First: 2 times',
            '    build/soak/some/Crashes-1.txt',
            '    build/soak/some/Crashes-2.txt',
            '',
            'Exits exit code 66 after Suite.First: 2 times',
            '    build/soak/some/Exits-1.txt',
            '    build/soak/some/Exits-2.txt',
            '',
            'Begins exit code 2 before the first test: 2 times',
            '    build/soak/some/Begins-1.txt',
            '    build/soak/some/Begins-2.txt',
            '',
            'Often exit code 1 in Suite.First: 1 time',
            '    build/soak/some/Often-1.txt',
            '',
            '9 of 12 rounds failed in M minutes, 1 at once',
        ],
    });
    assert.strictEqual(output('Crashes-2.txt'), '[ RUN      ] Suite.First\ncrashed\n');
    assert.deepStrictEqual(kept().map((files) => files.length), [9]);
    soak('--rounds=1', '--processes=1');
    assert.deepStrictEqual(kept().map((files) => files.length).sort(), [4, 9], 'those of the soak before stay');
});

test('of a failure that comes often it names five outputs', (context) => {
    const { lines } = machine(context, { Room: 'exit 1' }).soak('--rounds=7', '--processes=1');
    assert.deepStrictEqual(lines.slice(-4), [
        '    build/soak/some/Room-5.txt',
        '    and 2 more there',
        '',
        '7 of 7 rounds failed in M minutes, 1 at once',
    ]);
});

test('a process that falls silent is ended with all that it started, and its test named', { timeout: 120_000 }, async (context) => {
    // The first process waits for somebody to open the fifo. The second holds the other one open, whose
    // reader comes to its end when nobody does.
    const { folder, soak, output } = machine(context, {
        Room: 'echo "[ RUN      ] Suite.First"; sleep 1000 3>held & read line <fifo',
    });
    for (const name of ['fifo', 'held']) spawnSync('mkfifo', [path.join(folder, name)]);
    const released = fs.promises.readFile(path.join(folder, 'held'));
    const { status, lines } = soak('--rounds=1', '--limit=1');
    assert.strictEqual(status, 1);
    assert.strictEqual(lines[0], 'Room silent for 1 s in Suite.First: build/soak/some/Room-1.txt');
    assert.match(output('Room-1.txt'), /^\[ RUN {6}\] Suite\.First\n/);
    await released;
});

test('a time begins each program once at least', (context) => {
    const { soak } = machine(context, { One: 'true', Other: 'true' });
    const { status, lines } = soak('--minutes=0.0001', '--processes=1');
    assert.deepStrictEqual({ status, lines }, {
        status: 0,
        lines: ['', 'One    2 tests  1 round', 'Other  2 tests  1 round', '', '0 of 2 rounds failed in M minutes, 1 at once'],
    });
});

test('interrupted, it ends what runs and says what it has seen', { timeout: 120_000 }, async (context) => {
    const { folder, start } = machine(context, { Room: 'echo begun >told; read line <fifo' });
    for (const name of ['fifo', 'told']) spawnSync('mkfifo', [path.join(folder, name)]);
    const child = start('--processes=1');
    let output = '';
    child.stdout.on('data', (text) => (output += text));
    assert.strictEqual(await fs.promises.readFile(path.join(folder, 'told'), 'utf8'), 'begun\n');
    child.kill('SIGINT');
    assert.deepStrictEqual(await once(child, 'close'), [130, null]);
    assert.match(output, /^\nRoom {2}2 tests {2}0 rounds\n\ninterrupted: 0 of 0 rounds failed in [\d.]+ minutes, 1 at once\n$/);
});

for (const [words, reason] of [
    [['--rounds=0'], '--rounds expects a number above 0, found "0"'],
    [['--rounds=many'], '--rounds expects a number above 0, found "many"'],
    [['--rounds=1.5'], '--rounds expects a number above 0, found "1.5"'],
    [['--minutes=-1'], '--minutes expects a number above 0, found "-1"'],
    [['--processes='], '--processes expects a number above 0, found ""'],
    [['--limit=x'], '--limit expects a number above 0, found "x"'],
    [['--room=Core'], "Unknown option '--room'"],
    [['more'], 'expects one build folder, found 2'],
]) {
    test(`refuses ${words}`, (context) => {
        const { status, lines, stderr } = machine(context, { Room: 'true' }).soak(...words);
        assert.deepStrictEqual({ status, lines }, { status: 1, lines: [] });
        assert.ok(stderr.startsWith(`tools/soak: ${reason}`), stderr);
    });
}

test('refuses a folder that ctest has no list for', (context) => {
    const { folder, soak } = machine(context, { Room: 'true' });
    fs.rmSync(path.join(folder, 'build'), { recursive: true });
    assert.match(soak().stderr, /^tools\/soak: .*build\/some has no list of tests: /);
});
