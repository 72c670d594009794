import { define } from './define.js';
import { format, inspect } from './inspect.js';

/// Gives the engine's console, which is mute, a voice.
export function replaceConsole(native) {
    let indentation = '';
    const counts = new Map();
    const starts = new Map();

    function print(level, args) {
        const message = format(args);
        if (native.json) {
            native.write(false, JSON.stringify({ level, message }));
        } else {
            native.write(level === 'warn' || level === 'error',
                indentation === '' ? message : indentation + message.replaceAll('\n', `\n${indentation}`));
        }
    }

    function elapsed(label) {
        return `${label}: ${(native.now() - starts.get(label)).toFixed(3)} ms`;
    }

    function startGroup(label) {
        if (label.length > 0) print('log', label);
        indentation += '  ';
    }

    define(console, {
        log(...args) {
            print('log', args);
        },
        info(...args) {
            print('info', args);
        },
        warn(...args) {
            print('warn', args);
        },
        error(...args) {
            print('error', args);
        },
        debug(...args) {
            print('debug', args);
        },
        dir(value) {
            print('log', [inspect(value)]);
        },
        table(value) {
            print('log', [value]);
        },
        trace(...args) {
            const error = new Error(format(args));
            error.name = 'Trace';
            print('debug', [error]);
        },
        assert(condition, ...args) {
            if (condition) return;
            print('error', typeof args[0] === 'string'
                ? [`Assertion failed: ${args[0]}`, ...args.slice(1)]
                : ['Assertion failed', ...args]);
        },
        group(...label) {
            startGroup(label);
        },
        groupCollapsed(...label) {
            startGroup(label);
        },
        groupEnd() {
            indentation = indentation.slice(2);
        },
        count(label = 'default') {
            counts.set(label, (counts.get(label) ?? 0) + 1);
            print('log', [`${label}: ${counts.get(label)}`]);
        },
        countReset(label = 'default') {
            counts.delete(label);
        },
        time(label = 'default') {
            if (!starts.has(label)) starts.set(label, native.now());
        },
        timeLog(label = 'default', ...args) {
            if (starts.has(label)) print('log', [elapsed(label), ...args]);
        },
        timeEnd(label = 'default') {
            if (!starts.has(label)) return;
            print('log', [elapsed(label)]);
            starts.delete(label);
        },
    });
}
