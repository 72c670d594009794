// Shows values as people read them. The package is started on first use only: a run that prints no
// more than plain text does not pay for it.
let util;

function started() {
    util ??= require('node-inspect-extracted');
    return util;
}

const options = { depth: 4 };

export function inspect(value) {
    return started().inspect(value, options);
}

/// The text of a console call: its first argument may hold the console's placeholders (%s, %d, %o ...).
export function format(args) {
    if (args.length === 1 && typeof args[0] === 'string') return args[0];
    return started().formatWithOptions(options, ...args);
}
