'use strict';
// tools/bench-summary with programs that print figures instead of measuring them.

const { test } = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { temporaryFolder, fill } = require('./folder.js');

const tool = path.join(__dirname, '../../tools/bench-summary');

const upsert = '{"name": "store.upsert", "value": 120.5, "floor": 100, "ratio": 1.205, "unit": "ms", "most": 1.35}';
const call = '{"name": "bridge.call", "value": 3, "floor": 1, "ratio": 3, "unit": "us", "most": 2}';

// Runs the tool on programs given as shell scripts.
function summarise(context, ...scripts) {
    const folder = temporaryFolder(context);
    const programs = scripts.map((script, index) => {
        fill(folder, { [`program${index + 1}`]: `#!/bin/sh\n${script}\n` });
        return path.join(folder, `program${index + 1}`);
    });
    const { status, stdout, stderr } = spawnSync(process.execPath, [tool, 'bench/summary.json', ...programs], { cwd: folder, encoding: 'utf8' });
    const summary = path.join(folder, 'bench/summary.json');
    return { status, stdout, stderr, summary: fs.existsSync(summary) ? JSON.parse(fs.readFileSync(summary, 'utf8')) : undefined };
}

test('gathers the figures of all programs and sets each bound beside its ratio', (context) => {
    assert.deepStrictEqual(summarise(context, `echo '${upsert}'`, `echo '${call}'`), {
        status: 0,
        stderr: '',
        stdout: [
            'running program1',
            'running program2',
            '',
            'name             value   floor  ratio  at most',
            'store.upsert  120.5 ms  100 ms   1.21     1.35',
            'bridge.call       3 us    1 us   3.00        2  above',
            '',
            '1 of 2 within their bounds; written to bench/summary.json',
            '',
        ].join('\n'),
        summary: [
            { name: 'store.upsert', value: 120.5, floor: 100, ratio: 1.205, unit: 'ms' },
            { name: 'bridge.call', value: 3, floor: 1, ratio: 3, unit: 'us' },
        ],
    });
});

for (const [what, script, reason] of [
    ['fails', `echo '${upsert}'; exit 3`, 'program1 ended with 3'],
    ['is killed', 'kill -9 $$', 'program1 ended with SIGKILL'],
    ['prints nothing', 'true', 'program1 printed no figure'],
    ['prints something else', 'echo hello', 'program1 printed what is no figure: hello'],
    ['leaves a number out', 'echo \'{"name": "a", "value": 1, "floor": 1, "unit": "ms", "most": 2}\'',
        'program1 printed a figure whose ratio is no number: {"name": "a", "value": 1, "floor": 1, "unit": "ms", "most": 2}'],
    ['leaves the unit out', 'echo \'{"name": "a", "value": 1, "floor": 1, "ratio": 1, "most": 2}\'',
        'program1 printed a figure whose unit is no text: {"name": "a", "value": 1, "floor": 1, "ratio": 1, "most": 2}'],
]) {
    test(`writes no summary when a program ${what}`, (context) => {
        const { status, stderr, summary } = summarise(context, script);
        assert.deepStrictEqual({ status, stderr, summary }, { status: 1, stderr: `tools/bench-summary: ${reason}\n`, summary: undefined });
    });
}

test('refuses to summarise nothing', (context) => {
    const { status, stderr } = summarise(context);
    assert.deepStrictEqual({ status, stderr }, { status: 1, stderr: 'tools/bench-summary: there is no benchmark to run\n' });
});
