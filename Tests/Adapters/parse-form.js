'use strict';
// Parses a multipart form with busboy.
//
//     node parse-form.js CONTENT-TYPE BODY FOLDER
//
// Prints a line of JSON for each part, in order: ["file", name, file name, type] or
// ["text", name, type, encoding]. The bytes of each part go into FOLDER, in files 0, 1, 2 and so on.

const busboy = require('busboy');
const fs = require('node:fs');
const path = require('node:path');

const [contentType, body, folder] = process.argv.slice(2);
let count = 0;
const nextPart = (...line) => {
    console.log(JSON.stringify(line));
    return path.join(folder, String(count++));
};

const parser = busboy({
    headers: { 'content-type': contentType },
    defParamCharset: 'utf8', // of names and file names
    preservePath: true,
    limits: { fieldSize: Infinity },
});
parser.on('file', (name, bytes, { filename, mimeType }) => {
    bytes.pipe(fs.createWriteStream(nextPart('file', name, filename, mimeType)));
});
parser.on('field', (name, value, { mimeType, encoding }) => {
    // Read as ISO-8859-1, as the form declares it: a character for each byte.
    fs.writeFileSync(nextPart('text', name, mimeType, encoding), value, 'latin1');
});
parser.on('error', (error) => {
    console.error(error.message);
    process.exit(1);
});
fs.createReadStream(body).pipe(parser);
