'use strict';
// The example of docs/embedding.md is the program that is built, and it does what it says.

const { test } = require('node:test');
const assert = require('node:assert');
const busboy = require('busboy');
const fs = require('node:fs');
const http = require('node:http');
const path = require('node:path');
const { spawn } = require('node:child_process');
const { once } = require('node:events');
const { temporaryFolder } = require('./folder.js');

const project = path.join(__dirname, '../..');

test('docs/embedding.md shows the program as it is built', () => {
    const page = fs.readFileSync(`${project}/docs/embedding.md`, 'utf8');
    const shown = [...page.matchAll(/```cpp\n([^]*?)```/g)].map((match) => match[1]);
    assert.deepStrictEqual(shown, [fs.readFileSync(`${project}/Examples/uploading/main.cpp`, 'utf8')]);
});

// Starts the program with a server that has /site.jpg or has not; what it says, and what was uploaded.
async function run(context, photo) {
    const parts = [];
    const server = http.createServer((request, response) => {
        if (request.method === 'GET') {
            response.statusCode = photo === undefined ? 404 : 200;
            response.end(photo);
            return;
        }
        const parser = busboy({ headers: request.headers });
        parser.on('field', (name, value) => parts.push([name, value]));
        parser.on('file', async (name, bytes, { filename, mimeType }) => {
            parts.push([name, filename, mimeType, Buffer.concat(await bytes.toArray())]);
        });
        parser.on('close', () => {
            response.statusCode = 201;
            response.end('kept');
        });
        request.pipe(parser);
    });
    server.listen(0, '127.0.0.1');
    context.after(() => server.close());
    await once(server, 'listening');

    const program = spawn(`${process.env.ZEM_BUILD}/bin/zem-example-uploading`, [`http://127.0.0.1:${server.address().port}`], {
        cwd: temporaryFolder(context),
        timeout: 120_000,
    });
    const said = { stdout: '', stderr: '' };
    for (const stream of ['stdout', 'stderr']) program[stream].on('data', (text) => (said[stream] += text));
    const [status] = await once(program, 'close');
    return { status, ...said, parts };
}

test('the program uploads what it has cached', async (context) => {
    const photo = Buffer.from([0xff, 0xd8, 0x00, 0x0d, 0x0a, 0xff, 0xd9]);
    assert.deepStrictEqual(await run(context, photo), {
        status: 0,
        stdout: '201 kept\n',
        stderr: '',
        parts: [['title', 'Site'], ['photo', 'site.jpg', 'image/jpeg', photo]],
    });
});

test('the program says why there is nothing to upload', async (context) => {
    assert.deepStrictEqual(await run(context), {
        status: 0,
        stdout: 'the server answered with status 404\n',
        stderr: '',
        parts: [],
    });
});
