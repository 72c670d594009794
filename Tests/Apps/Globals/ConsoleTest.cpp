#include <gtest/gtest.h>

#include <Apps/Host.h>

namespace {

using test::Host;

TEST(Console, WritesLogInfoAndDebugToOutputWarnAndErrorToErrors) {
    const Host host;
    const auto result = host.runScript(R"(
        console.log('log'); console.info('info'); console.debug('debug');
        console.warn('warn'); console.error('error');
    )");
    EXPECT_EQ(result.output, "log\ninfo\ndebug\n");
    EXPECT_EQ(result.errors, "warn\nerror\n");
    EXPECT_EQ(result.code, 0);
}

TEST(Console, PrintsValuesReadably) {
    const Host host;
    const auto result = host.runScript(R"(
        class Point { x = 1 }
        const self = { name: 'self' };
        self.me = self;
        console.log('text', 1, -0, 2n, true, null, undefined, Symbol('s'));
        console.log({ a: 1, b: 'x', c: [1, , 'y'] }, [], {});
        console.log(new Map([['k', { v: 1 }]]), new Set([1, 'a']));
        console.log(new Point(), new Uint8Array(2), new Date(0), /x/g, [function f() {}]);
        console.log(self);
        console.log({ a: { b: { c: { d: { e: { f: 1 } } } } } });
        console.log('%s has %d of %j, %o', 'x', 2, { y: 1 }, [3], 'more', { z: 4 });
        console.log('100%', 'a%sb');
        console.log('two\nlines', ['two\nlines']);
        console.log();
        console.log('é€😀', ['\ud800']);
    )");
    EXPECT_EQ(result.output, "text 1 -0 2n true null undefined Symbol(s)\n"
                             "{ a: 1, b: 'x', c: [ 1, <1 empty item>, 'y' ] } [] {}\n"
                             "Map(1) { 'k' => { v: 1 } } Set(2) { 1, 'a' }\n"
                             "Point { x: 1 } Uint8Array(2) [ 0, 0 ] 1970-01-01T00:00:00.000Z /x/g "
                             "[ [Function: f] ]\n"
                             "<ref *1> { name: 'self', me: [Circular *1] }\n"
                             "{\n  a: {\n    b: { c: { d: { e: [Object] } } }\n  }\n}\n"
                             "x has 2 of {\"y\":1}, [ 3, [length]: 1 ] more { z: 4 }\n"
                             "100% a%sb\n"
                             "two\nlines [ 'two\\nlines' ]\n"
                             "\n"
                             "é€😀 [ '\\ud800' ]\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Console, PrintsErrorsWithPlaceAndCause) {
    const Host host;
    const auto result = host.runScript("function make() { return new TypeError('bad', { cause: new "
                                       "Error('why') }); }\n"
                                       "console.log(Object.assign(make(), { code: 7 }));\n"
                                       "console.log([new RangeError('in a list')]);\n");
    EXPECT_EQ(result.output, "TypeError: bad\n"
                             "    at make (bundle.js:1:39)\n"
                             "    at global code (bundle.js:2:31) {\n"
                             "  cause: Error: why\n"
                             "      at make (bundle.js:1:65)\n"
                             "      at global code (bundle.js:2:31),\n"
                             "  code: 7\n"
                             "}\n"
                             "[\n"
                             "  RangeError: in a list\n"
                             "      at global code (bundle.js:3:28)\n"
                             "]\n");
    EXPECT_EQ(result.code, 0);
}

TEST(Console, HasTheOtherCommonMethods) {
    const Host host;
    const auto result = host.runScript(R"(
        console.group('outer'); console.log('in\nside');
        console.groupCollapsed(); console.warn('deeper'); console.groupEnd(); console.groupEnd();
        console.groupEnd(); console.log('out');
        console.count(); console.count('x'); console.count(); console.countReset(); console.count();
        console.assert(true, 'no'); console.assert(false); console.assert(0, 'what %s', 'x', 1);
        console.dir({ a: 1 }, { depth: 0 }); console.table([[1, 2]]);
        console.trace('here');
        console.clear();
    )");
    EXPECT_EQ(result.output, "outer\n  in\n  side\nout\ndefault: 1\nx: 1\ndefault: 2\ndefault: 1\n"
                             "{ a: 1 }\n[ [ 1, 2 ] ]\n"
                             "Trace: here\n    at global code (bundle.js:8:22)\n");
    EXPECT_EQ(result.errors, "    deeper\nAssertion failed\nAssertion failed: what x 1\n");
    EXPECT_EQ(result.code, 0);
}

TEST(Console, TellsElapsedTime) {
    const Host host;
    const auto result =
        host.runScript("console.time('t'); console.timeLog('t', 'on'); console.timeEnd('t');"
                       "console.timeEnd('t'); console.timeLog('never');",
                       {"--json"});
    std::size_t lines = 0;
    std::size_t start = 0;
    for (std::size_t end = 0; (end = result.output.find('\n', start)) != std::string::npos;
         start = end + 1) {
        ++lines;
        const std::string line = result.output.substr(start, end - start);
        EXPECT_TRUE(line.starts_with(R"({"level":"log","message":"t: )")) << line;
        EXPECT_NE(line.find(lines == 1 ? " ms on\"}" : " ms\"}"), std::string::npos) << line;
    }
    EXPECT_EQ(lines, 2U);
}

TEST(Console, ShowsWhatTheClassesOfTheWebHold) {
    const Host host;
    const auto result = host.runScript(R"(
        class Own extends EventTarget {
            mine = 1;
            get never() { throw new Error('a getter of a bundle') }
        }
        console.log(new Headers({ B: '1', a: '2' }), new Own());
        console.log(new Blob(['x'], { type: 'a/b' }), new File([], 'n', { lastModified: 1 }));
        console.log(new Response('x', { status: 201 }));
        console.log(AbortSignal.abort('why'), [[[[[new Headers()]]]]]);
    )");
    EXPECT_EQ(result.output, "Headers { a: '2', b: '1' } Own { mine: 1 }\n"
                             "Blob { size: 1, type: 'a/b' } "
                             "File { name: 'n', lastModified: 1, size: 0, type: '' }\n"
                             "Response {\n"
                             "  type: 'default',\n"
                             "  url: '',\n"
                             "  redirected: false,\n"
                             "  status: 201,\n"
                             "  ok: true,\n"
                             "  statusText: '',\n"
                             "  headers: Headers { 'content-type': 'text/plain;charset=UTF-8' },\n"
                             "  body: null,\n"
                             "  bodyUsed: false\n"
                             "}\n"
                             "AbortSignal { aborted: true, reason: 'why', onabort: null } [\n"
                             "  [\n"
                             "    [ [ [ [Headers] ] ] ]\n"
                             "  ]\n"
                             "]\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Console, WritesOneJSONObjectALineWhenAsked) {
    const Host host;
    const auto result = host.runScript(R"(
        console.log('a', { b: 1 }); console.info('i'); console.debug('d');
        console.warn('two\nlines "quoted"'); console.error('\ud800');
        console.group('g'); console.log('not indented');
    )",
                                       {"--json"});
    EXPECT_EQ(result.output, R"({"level":"log","message":"a { b: 1 }"}
{"level":"info","message":"i"}
{"level":"debug","message":"d"}
{"level":"warn","message":"two\nlines \"quoted\""}
{"level":"error","message":"\ud800"}
{"level":"log","message":"g"}
{"level":"log","message":"not indented"}
)");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Console, HandsLongOutputOverWhole) {
    const Host host;
    const auto result = host.runScript(
        "for (let line = 0; line < 20000; ++line) console.log('x'.repeat(100)); host.exit(0)");
    EXPECT_EQ(result.output.size(), 20000U * 101);
    EXPECT_EQ(result.code, 0);
}

} // namespace
