'use strict';
// ZEM in an application's build, the two ways there are: installed and found, or its folder added.

const { test } = require('node:test');
const assert = require('node:assert');
const fs = require('node:fs');
const path = require('node:path');
const { spawnSync } = require('node:child_process');
const { temporaryFolder } = require('./folder.js');

const { CMAKE, CC, CXX, ZEM_BUILD } = process.env;
const project = path.join(__dirname, '../..');

function run(command, ...arguments_) {
    const { status, stdout, stderr } = spawnSync(command, arguments_, { encoding: 'utf8' });
    assert.strictEqual(status, 0, stdout + stderr);
    return stdout;
}

// A program that includes `headers` and prints an identifier.
const program = (headers) => headers.map((header) => `#include <zem/${header}>\n`).join('') +
    '#include <cstdio>\nint main() { std::puts(zem::platform::makeUUID().c_str()); }\n';

const lists = (zem) => 'cmake_minimum_required(VERSION 3.25)\nproject(application LANGUAGES C CXX)\n' +
    `${zem}\nadd_executable(application application.cpp)\ntarget_link_libraries(application PRIVATE zem::zem)\n`;

test('installed, it is found with every public header and none that is private', (context) => {
    const folder = temporaryFolder(context);
    run(CMAKE, '--install', ZEM_BUILD, '--prefix', `${folder}/installed`);
    const headers = fs.readdirSync(`${project}/Sources`, { recursive: true })
        .filter((header) => header.endsWith('.h') && !header.includes('/Private/')).sort();
    const installed = fs.readdirSync(`${folder}/installed/include/zem`, { recursive: true })
        .filter((header) => header.endsWith('.h')).sort();
    assert.ok(headers.length > 0);
    assert.deepStrictEqual(installed, headers);

    fs.writeFileSync(`${folder}/CMakeLists.txt`, lists('find_package(zem 0.1 REQUIRED)'));
    fs.writeFileSync(`${folder}/application.cpp`, program(headers));
    run(CMAKE, '-S', folder, '-B', `${folder}/build`, '-G', 'Ninja', `-DCMAKE_CXX_COMPILER=${CXX}`, `-DCMAKE_C_COMPILER=${CC}`,
        `-DCMAKE_PREFIX_PATH=${folder}/installed`);
    run(CMAKE, '--build', `${folder}/build`);
    assert.match(run(`${folder}/build/application`), /^[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}\n$/);
});

test('its folder added, it brings its library and headers, and neither tests nor its host', (context) => {
    const folder = temporaryFolder(context, {
        'CMakeLists.txt': lists(`add_subdirectory(${project} zem)\nenable_testing()`),
        'application.cpp': program(['Platform/UUID.h']),
    });
    run(CMAKE, '-S', folder, '-B', `${folder}/build`, '-G', 'Ninja', `-DCMAKE_CXX_COMPILER=${CXX}`, `-DCMAKE_C_COMPILER=${CC}`);
    // Compiling the application's own file shows that everything its headers need is found; the library
    // itself is the one that the other tests build.
    run(CMAKE, '--build', `${folder}/build`, '--target', 'CMakeFiles/application.dir/application.cpp.o');
    const targets = run(CMAKE, '--build', `${folder}/build`, '--target', 'help').split('\n').map((line) => line.split(':')[0]);
    assert.ok(targets.includes('zem'));
    assert.deepStrictEqual(targets.filter((target) => /^zem-/.test(target)), []);
});

test('no public header asks for a macro, which an application may have set otherwise than the library', () => {
    const depends = /^\s*#\s*(?!pragma once$|include\b)|\bassert\s*\(|\bNDEBUG\b/;
    const headers = fs.readdirSync(`${project}/Sources`, { recursive: true })
        .filter((header) => header.endsWith('.h') && !header.includes('/Private/'));
    assert.ok(headers.length > 0);
    const lines = headers.flatMap((header) => fs.readFileSync(`${project}/Sources/${header}`, 'utf8').split('\n')
        .map((line, index) => ({ line, place: `${header}:${index + 1}: ${line}` })));
    assert.deepStrictEqual(lines.filter(({ line }) => depends.test(line)).map(({ place }) => place), []);
});
