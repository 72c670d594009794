'use strict';
// cmake/SQLCipher.cmake against a system that has this or that SQLCipher: a library of a few lines
// that gives itself out as one, found through pkg-config as a real one is.

const { test } = require('node:test');
const assert = require('node:assert');
const path = require('node:path');
const { execFileSync, spawnSync } = require('node:child_process');
const fs = require('node:fs');
const { temporaryFolder, fill } = require('./folder.js');

const { CMAKE, CC } = process.env;
const project = path.join(__dirname, '../..');

// Its pkg-config file gives SQLite's version, as Debian's does: what counts is what it answers.
function provide(system, version) {
    fill(system, {
        'include/sqlite3.h': 'typedef struct sqlite3 sqlite3;\ntypedef struct sqlite3_stmt sqlite3_stmt;\n' +
            '#define SQLITE_OK 0\n#define SQLITE_ROW 100\n' +
            'int sqlite3_open(const char*, sqlite3**);\n' +
            'int sqlite3_prepare_v2(sqlite3*, const char*, int, sqlite3_stmt**, const char**);\n' +
            'int sqlite3_step(sqlite3_stmt*);\n' +
            'const unsigned char* sqlite3_column_text(sqlite3_stmt*, int);\n',
        'sqlcipher.c': '#include "include/sqlite3.h"\n#include <string.h>\n' +
            'static int asked;\n' +
            'int sqlite3_open(const char* file, sqlite3** database) { return file == 0 || database == 0; }\n' +
            'int sqlite3_prepare_v2(sqlite3* database, const char* sql, int length, sqlite3_stmt** statement, const char** tail) {\n' +
            '    (void)database, (void)length, (void)statement, (void)tail;\n' +
            '    asked = strcmp(sql, "PRAGMA cipher_version") == 0;\n    return SQLITE_OK;\n}\n' +
            'int sqlite3_step(sqlite3_stmt* statement) { (void)statement; return asked && VERSION[0] ? SQLITE_ROW : 101; }\n' +
            'const unsigned char* sqlite3_column_text(sqlite3_stmt* statement, int column) {\n' +
            '    (void)statement, (void)column;\n    return (const unsigned char*)VERSION;\n}\n',
        'pkgconfig/sqlcipher.pc': `prefix=${system}\nName: SQLCipher\nDescription: SQLCipher\nVersion: 3.46.1\n` +
            'Libs: -L${prefix}/lib -lsqlcipher\nCflags: -DSQLITE_HAS_CODEC -I${prefix}/include\n',
    });
    fs.mkdirSync(path.join(system, 'lib'), { recursive: true });
    execFileSync(CC, ['-shared', '-fPIC', `-DVERSION="${version}"`, '-o', path.join(system, 'lib/libsqlcipher.so'), path.join(system, 'sqlcipher.c')]);
}

// Configures a project that has nothing but the question, on a system whose only pkg-config files are
// those in `system`; the amalgamation is a folder with two empty files in it.
function configure(folder, choice = 'auto', amalgamation = `${folder}/amalgamation`) {
    fill(folder, {
        'project/CMakeLists.txt': 'cmake_minimum_required(VERSION 3.25)\nproject(question LANGUAGES C)\n' +
            'find_package(PkgConfig REQUIRED)\nfind_package(Threads REQUIRED)\n' +
            `include(${project}/cmake/SQLCipher.cmake)\n`,
        'amalgamation/sqlite3.c': '',
        'amalgamation/sqlite3.h': '',
    });
    const { status, stdout, stderr } = spawnSync(CMAKE, ['-S', 'project', '-B', 'build', '-G', 'Ninja', `-DCMAKE_C_COMPILER=${CC}`,
        `-DZEM_SQLCIPHER=${choice}`, `-DZEM_SQLCIPHER_AMALGAMATION=${amalgamation}`], {
        cwd: folder,
        encoding: 'utf8',
        env: { ...process.env, PKG_CONFIG_LIBDIR: path.join(folder, 'system/pkgconfig'), PKG_CONFIG_PATH: '' },
    });
    return { status, stdout, message: stderr.replace(/\s+/g, ' ') };
}

function refusal(version) {
    return `The system's SQLCipher is version ${version}; ZEM needs 4.5 or newer. Remove that development package ` +
        '(on Debian: apt-get remove libsqlcipher-dev), or configure with -DZEM_SQLCIPHER=amalgamation to build the ' +
        'pinned one that npm ci installs.';
}

function refused({ status, message }, text) {
    assert.strictEqual(status, 1);
    assert.ok(message.includes(text), message);
}

function accepted({ status, stdout, message }, line) {
    assert.strictEqual(status, 0, message);
    assert.ok(stdout.split('\n').includes(`-- SQLCipher: ${line}`), stdout);
}

for (const version of ['3.4.1', '4.4.3 community', '4.4']) {
    test(`a system SQLCipher ${version} is refused by its version`, (context) => {
        const folder = temporaryFolder(context);
        provide(path.join(folder, 'system'), version);
        refused(configure(folder), refusal(version.split(' ')[0]));
        refused(configure(folder, 'system'), refusal(version.split(' ')[0]));
    });
}

test('a system library that names no version is refused', (context) => {
    const folder = temporaryFolder(context);
    provide(path.join(folder, 'system'), '');
    refused(configure(folder), refusal('unknown'));
});

for (const version of ['4.5.0 community', '4.10.2', '5.0']) {
    test(`a system SQLCipher ${version} is taken`, (context) => {
        const folder = temporaryFolder(context);
        provide(path.join(folder, 'system'), version);
        accepted(configure(folder), `${version.split(' ')[0]} of the system`);
    });
}

test('an old one need not be removed where the amalgamation is asked for', (context) => {
    const folder = temporaryFolder(context);
    provide(path.join(folder, 'system'), '3.4.1');
    accepted(configure(folder, 'amalgamation'), `the amalgamation in ${folder}/amalgamation`);
});

test('an old one that has been removed or upgraded is forgotten', (context) => {
    const folder = temporaryFolder(context);
    const system = path.join(folder, 'system');
    provide(system, '3.4.1');
    refused(configure(folder), refusal('3.4.1'));
    fs.rmSync(system, { recursive: true });
    accepted(configure(folder), `the amalgamation in ${folder}/amalgamation`);
    provide(system, '4.6.1 community');
    accepted(configure(folder), '4.6.1 of the system');
});

test('where there is none, it says so', (context) => {
    const folder = temporaryFolder(context);
    refused(configure(folder, 'system'), 'No SQLCipher was found through pkg-config; ZEM needs 4.5 or newer. ' +
        'Install it, or configure with -DZEM_SQLCIPHER=amalgamation.');
});

test('where the amalgamation is missing, it says how to get it', (context) => {
    const folder = temporaryFolder(context);
    refused(configure(folder, 'auto', `${folder}/nowhere`), `SQLCipher's amalgamation is not in ${folder}/nowhere. ` +
        `Run tools/install-packages in ${project} first (make test does).`);
});
