'use strict';
// A private folder for one test, filled with {file: content} and removed when the test ends.

const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

exports.temporaryFolder = function temporaryFolder(context, tree = {}) {
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'zem-test-'));
    context.after(() => fs.rmSync(folder, { recursive: true }));
    exports.fill(folder, tree);
    return folder;
};

// A file whose content begins with "#!" is made executable.
exports.fill = function fill(folder, tree) {
    for (const [file, content] of Object.entries(tree)) {
        fs.mkdirSync(path.join(folder, path.dirname(file)), { recursive: true });
        fs.writeFileSync(path.join(folder, file), content, { mode: content.startsWith('#!') ? 0o755 : 0o644 });
    }
};
