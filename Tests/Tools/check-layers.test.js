'use strict';
// Each rule of tools/check-layers, broken once in a tree made for it.

const { test } = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { fill } = require('./folder.js');

const tool = path.join(__dirname, '../../tools/check-layers');

// Runs the tool on a tree of {file: content}.
function check(tree) {
    const root = fs.mkdtempSync(path.join(os.tmpdir(), 'zem-layers-'));
    try {
        fill(root, tree);
        const { status, stdout, stderr } = spawnSync(process.execPath, [tool, root], { encoding: 'utf8' });
        return { status, output: stdout + stderr };
    } finally {
        fs.rmSync(root, { recursive: true });
    }
}

function accepts(tree) {
    const includes = Object.values(tree).join('\n').match(/#\s*include/g).length;
    assert.deepStrictEqual(check(tree), {
        status: 0,
        output: `tools/check-layers: ${includes} includes, every arrow the right way\n`,
    });
}

function refuses(tree, ...complaints) {
    assert.deepStrictEqual(check(tree), { status: 1, output: complaints.map((line) => `${line}\n`).join('') });
}

const include = (header) => `#include <${header}>\n`;

test('arrows that run the right way pass', () => {
    accepts({
        'Sources/Platform/Queue.cpp': include('zem/Platform/Queue.h') + include('glib.h') + include('gio/gio.h'),
        'Sources/Platform/Private/Journal.h': include('systemd/sd-journal.h') + include('libsecret/secret.h'),
        'Sources/JavaScript/Value.cpp': include('JavaScriptCore/JavaScript.h') + include('zem/JavaScript/Private/Door.h'),
        'Sources/Core/DataService.h': include('zem/Tessel/Plugin.h') + include('vector'),
        'Sources/SqliteStore/Connection.cpp': include('sqlite3.h') + include('zem/Core/Logging.h'),
        'Sources/Adapters/BinaryStoreFile.cpp': include('zem/SqliteStore/Private/Statement.h'),
        'Sources/Adapters/EncryptedBinaryStore.cpp': include('zem/SqliteStore/Private/CallOut.h'),
        'Sources/Adapters/Http.cpp': include('curl/curl.h') + include('zem/Priming/Session.h'),
        'Tests/SqliteStore/ConnectionTest.cpp': include('sqlite3.h') + include('zem/SqliteStore/Private/Statement.h'),
        'Tests/Support/SecretService.cpp': include('gio/gio.h'),
        'Tests/Host/RunTest.cpp': include('zem/Core/DataService.h') + include('Support/Wait.h'),
        'Apps/zem/main.cpp': include('zem/SqliteStore/SQLiteStore.h') + '#include "Run.h"\n',
        'Benchmarks/StoreBenchmark.cpp': include('sqlite3.h') + include('JavaScriptCore/JavaScript.h'),
    });
});

test('a room does not include a later one', () => {
    const rooms = ['Platform', 'JavaScript', 'Tessel', 'Core', 'SqliteStore', 'TesselPluginZEM', 'Priming', 'Adapters'];
    for (const [index, room] of rooms.slice(0, -1).entries()) {
        const later = rooms[index + 1];
        refuses({ [`Sources/${room}/A.cpp`]: `\n${include(`zem/${later}/B.h`)}` },
            `Sources/${room}/A.cpp:2: includes zem/${later}/B.h: ${room} includes only ${rooms.slice(0, index + 1).join(', ')}`);
    }
});

test('the store takes only logging from the core', () => {
    refuses({ 'Sources/SqliteStore/A.cpp': include('zem/Core/DataService.h') },
        'Sources/SqliteStore/A.cpp:1: includes zem/Core/DataService.h: of Core, SqliteStore takes only Core/Logging.h');
});

test('a header from outside belongs to one room', () => {
    const owned = {
        'JavaScriptCore/JavaScript.h': 'JavaScript/',
        'jsc/jsc.h': 'JavaScript/',
        'unicode/ustring.h': 'JavaScript/',
        'sqlite3.h': 'SqliteStore/',
        'sqlcipher/sqlite3.h': 'SqliteStore/',
        'glib.h': 'Platform/, Support/SecretService',
        'glib-unix.h': 'Platform/, Support/SecretService',
        'gio/gio.h': 'Platform/, Support/SecretService',
        'libsecret/secret.h': 'Platform/, Support/SecretService',
        'systemd/sd-journal.h': 'Platform/, Support/SecretService',
        'curl/curl.h': 'Adapters/',
    };
    for (const [header, owners] of Object.entries(owned)) {
        const files = ['Sources/Core/A.cpp', 'Tests/Core/A.cpp', 'Tests/Support/A.h', 'Apps/Platform/A.cpp', 'Examples/A.cpp'];
        refuses(Object.fromEntries(files.map((file) => [file, include(header)])),
            ...files.map((file) => `${file}:1: includes ${header}: only ${owners} may`));
    }
    refuses({ 'Sources/Adapters/FileKeyStore.cpp': include('sqlite3.h') },
        `Sources/Adapters/FileKeyStore.cpp:1: includes sqlite3.h: only ${owned['sqlite3.h']} may`);
});

test('no public header shows a header from outside, not even in the room that owns it', () => {
    for (const [room, header] of [
        ['Platform', 'glib.h'], ['JavaScript', 'JavaScriptCore/JavaScript.h'], ['SqliteStore', 'sqlite3.h'], ['Adapters', 'curl/curl.h'],
    ]) {
        refuses({ [`Sources/${room}/A.h`]: include(header) },
            `Sources/${room}/A.h:1: includes ${header}: no public header shows it`);
    }
});

test('what is private to a room is included from that room, its tests and benchmarks alone', () => {
    const complaint = 'includes zem/Tessel/Private/B.h: only Tessel, its tests and benchmarks include what is private to it';
    const files = ['Sources/Core/A.cpp', 'Tests/Core/A.cpp', 'Tests/Support/A.h', 'Apps/zem/A.cpp'];
    refuses(Object.fromEntries(files.map((file) => [file, include('zem/Tessel/Private/B.h')])),
        ...files.map((file) => `${file}:1: ${complaint}`));
    accepts({ 'Benchmarks/A.cpp': include('zem/Tessel/Private/B.h') });
    refuses({
        'Sources/Adapters/FileKeyStore.cpp': include('zem/SqliteStore/Private/B.h'),
        'Sources/Adapters/EncryptedBinaryStore.h': include('zem/SqliteStore/Private/B.h'),
        'Sources/Adapters/BinaryStoreFile.cpp': include('zem/Core/Private/B.h'),
    },
    'Sources/Adapters/BinaryStoreFile.cpp:1: includes zem/Core/Private/B.h: only Core, its tests and benchmarks include what is private to it',
    'Sources/Adapters/EncryptedBinaryStore.h:1: includes zem/SqliteStore/Private/B.h: only SqliteStore, its tests and benchmarks include what is private to it',
    'Sources/Adapters/FileKeyStore.cpp:1: includes zem/SqliteStore/Private/B.h: only SqliteStore, its tests and benchmarks include what is private to it');
});

test('a public header includes nothing private', () => {
    refuses({ 'Sources/Tessel/A.h': include('zem/Tessel/Private/B.h') },
        'Sources/Tessel/A.h:1: includes zem/Tessel/Private/B.h: a public header includes nothing private');
});

test('no include reaches around the rooms', () => {
    refuses({
        'Sources/Core/A.cpp': '#include "B.h"\n#include <zem/Platform/../Core/B.h>\n#  include MACRO\n',
        'Sources/Extra/A.cpp': include('vector'),
        'Tests/Core/A.cpp': '#include "../../Sources/Core/B.h"\n' + include('zem/Extra/B.h'),
        'Apps/zem/A.cpp': '#include "../../Tests/Support/Wait.h"\n',
    },
    'Sources/Core/A.cpp:1: includes B.h: headers are included as <zem/Room/Name.h>',
    'Sources/Core/A.cpp:2: includes zem/Platform/../Core/B.h: an include does not climb out of its folder',
    'Sources/Core/A.cpp:3: includes MACRO: an include names its header',
    'Sources/Extra/A.cpp: lies in no room',
    'Tests/Core/A.cpp:1: includes ../../Sources/Core/B.h: it lies outside Tests',
    'Tests/Core/A.cpp:2: includes zem/Extra/B.h: there is no room Extra',
    'Apps/zem/A.cpp:1: includes ../../Tests/Support/Wait.h: it lies outside Apps');
});

const quote = (header) => `#include "${header}"\n`;
const wings = ['Process', 'Runtime', 'Globals', 'Commands', 'Shell'];

test('a wing of the host includes the wings below it, and main and Run all of them', () => {
    const all = wings.map((wing) => quote(`${wing}/A.h`)).join('');
    accepts({
        ...Object.fromEntries(wings.map((wing) => [`Apps/zem/${wing}/A.h`, include('vector')])),
        ...Object.fromEntries(wings.map((wing, index) => [
            `Apps/zem/${wing}/A.cpp`, wings.slice(0, index).map((below) => quote(`${below}/A.h`)).join('') + quote('A.h')])),
        'Apps/zem/Run.h': all,
        'Apps/zem/main.cpp': quote('Run.h') + all,
    });
});

test('a wing of the host does not include a wing above it, nor Run', () => {
    for (const [index, wing] of wings.entries()) {
        const below = wings.slice(0, index + 1).join(', ');
        for (const above of wings.slice(index + 1)) {
            refuses({
                [`Apps/zem/${above}/A.h`]: '',
                [`Apps/zem/${wing}/A.cpp`]: quote(`${above}/A.h`) + quote(`../${above}/A.h`),
            },
            `Apps/zem/${wing}/A.cpp:1: includes ${above}/A.h: ${wing} includes only ${below}`,
            `Apps/zem/${wing}/A.cpp:2: includes ../${above}/A.h: ${wing} includes only ${below}`);
        }
        refuses({ 'Apps/zem/Run.h': '', [`Apps/zem/${wing}/A.cpp`]: quote('Run.h') + quote('../Run.h') },
            `Apps/zem/${wing}/A.cpp:1: includes Run.h: ${wing} includes only ${below}`,
            `Apps/zem/${wing}/A.cpp:2: includes ../Run.h: ${wing} includes only ${below}`);
    }
});

test('the host has no other wings, and quotes its own headers', () => {
    refuses({
        'Apps/zem/Commands/A.h': '',
        'Apps/zem/Extra/A.cpp': include('vector'),
        'Apps/zem/Process/A.cpp': include('Commands/A.h'),
    },
    'Apps/zem/Extra/A.cpp: lies in no wing',
    'Apps/zem/Process/A.cpp:1: includes Commands/A.h: the host quotes its own headers');
});

test('a tree without includes is no tree that was checked', () => {
    const { status, output } = check({ 'README.md': 'nothing\n' });
    assert.strictEqual(status, 1);
    assert.match(output, /: found no include to check\n$/);
});
