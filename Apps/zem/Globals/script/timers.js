/// The four timer functions, `startAlarm(action, delay)`, whose timer does not keep the run from ending,
/// and `fireTimer(id)`, which the host calls when a timer is due.
export function makeTimers(native) {
    const timers = new Map();
    let lastId = 0;

    function start(callback, delay, args, repeats, holdsRun = true) {
        const timer = { callback, args, repeats, delay };
        lastId += 1;
        timers.set(lastId, timer);
        native.startTimer(lastId, delay, holdsRun);
        return lastId;
    }

    function startChecked(name, callback, delay, args, repeats) {
        if (typeof callback !== 'function') {
            throw new TypeError(`${name}: the callback is not a function`);
        }
        // As in browsers the delay is a 32-bit integer, and none is negative.
        return start(callback, Math.max(0, delay | 0), args, repeats);
    }

    function stop(id) {
        const number = Number(id);
        if (timers.delete(number)) native.stopTimer(number);
    }

    return {
        setTimeout(callback, delay = 0, ...args) {
            return startChecked('setTimeout', callback, delay, args, false);
        },
        setInterval(callback, delay = 0, ...args) {
            return startChecked('setInterval', callback, delay, args, true);
        },
        clearTimeout(id) {
            stop(id);
        },
        clearInterval(id) {
            stop(id);
        },
        startAlarm(action, delay) {
            start(action, delay, [], false, false);
        },
        fireTimer(id) {
            const timer = timers.get(id);
            if (!timer.repeats) timers.delete(id);
            Reflect.apply(timer.callback, globalThis, timer.args);
            if (timer.repeats && timers.has(id)) native.startTimer(id, timer.delay, true);
        },
    };
}
