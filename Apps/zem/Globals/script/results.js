/// showResult(failed, value, done): what a script came to, or the promise that it gave: done(failed, text,
/// json), once. The text is the value as people read it. The JSON is that text where the value has no
/// other form in JSON, null for undefined, and empty where it failed.
export function makeShowResult(inspect) {
    const resolve = Promise.resolve;
    const then = Promise.prototype.then;

    /// Undefined where JSON has no form for it: a function, a cycle, a BigInt.
    function toJSON(value) {
        try {
            return JSON.stringify(value);
        } catch {
            return undefined;
        }
    }

    function succeed(value, done) {
        const text = inspect(value);
        done(false, text, value === undefined ? 'null' : toJSON(value) ?? JSON.stringify(text));
    }

    function fail(error, done) {
        let text;
        try {
            text = inspect(error);
        } catch {
            text = 'an object that cannot be looked at';
        }
        done(true, text, '');
    }

    return function showResult(failed, value, done) {
        if (failed) {
            fail(value, done);
            return;
        }
        Reflect.apply(then, Reflect.apply(resolve, Promise, [value]), [
            (settled) => {
                try {
                    succeed(settled, done);
                } catch (error) {
                    fail(error, done);
                }
            },
            (error) => fail(error, done),
        ]);
    };
}
