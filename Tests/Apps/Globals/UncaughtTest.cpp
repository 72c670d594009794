// Uncaught errors end the run with exit code 1 and are reported: place, message, stack.

#include <gtest/gtest.h>

#include <Apps/Host.h>

namespace {

using test::Host;

void expectUncaught(const std::string& script, const std::string& report) {
    const Host host;
    const auto result = host.runScript(script);
    EXPECT_EQ(result.errors, report) << script;
    EXPECT_EQ(result.output, "") << script;
    EXPECT_EQ(result.code, 1) << script;
}

TEST(Uncaught, ExceptionsOfTheScriptItself) {
    expectUncaught("const f = () => {\n"
                   "    null.x;\n"
                   "};\n"
                   "function outer() { f(); }\n"
                   "setTimeout(() => console.log('never'));\n"
                   "outer();\n"
                   "console.log('never');\n",
                   "bundle.js:2:9: Uncaught TypeError: null is not an object (evaluating "
                   "'null.x')\n"
                   "    at f (bundle.js:2:9)\n"
                   "    at outer (bundle.js:4:21)\n"
                   "    at global code (bundle.js:6:6)\n");
}

TEST(Uncaught, SyntaxErrors) {
    expectUncaught("let a = 1;\nlet b = ) 2;\n",
                   "bundle.js:2: Uncaught SyntaxError: Unexpected token ')'\n");
}

TEST(Uncaught, ExceptionsInTimers) {
    expectUncaught("setTimeout(function late() { throw new RangeError('late') }, 1);\n"
                   "setTimeout(() => console.log('never'), 5);\n",
                   "bundle.js:1:50: Uncaught RangeError: late\n"
                   "    at late (bundle.js:1:50)\n");
    expectUncaught("setInterval(() => { throw new Error('again') }, 1)",
                   "bundle.js:1:36: Uncaught Error: again\n"
                   "    at bundle.js:1:36\n");
}

TEST(Uncaught, ExceptionsInMicrotasks) {
    expectUncaught("queueMicrotask(function micro() { throw new Error('m') });\n"
                   "queueMicrotask(() => console.log('never'));\n",
                   "bundle.js:1:50: Uncaught Error: m\n"
                   "    at micro (bundle.js:1:50)\n");
}

TEST(Uncaught, ExceptionsInEventListeners) {
    expectUncaught("const target = new EventTarget();\n"
                   "target.addEventListener('go', function heard() { throw new Error('l') });\n"
                   "target.addEventListener('go', () => console.log('never'));\n"
                   "target.dispatchEvent(new Event('go'));\n"
                   "console.log('never');\n",
                   "bundle.js:2:65: Uncaught Error: l\n"
                   "    at heard (bundle.js:2:65)\n"
                   "    at global code (bundle.js:4:21)\n");
    expectUncaught(
        "const controller = new AbortController();\n"
        "controller.signal.onabort = { handleEvent() {} };\n"
        "controller.signal.addEventListener('abort', {});\n"
        "controller.abort();\n",
        "bundle.js:4:17: Uncaught TypeError: callback.handleEvent is not a function. (In "
        "'callback.handleEvent(event)', 'callback.handleEvent' is undefined)\n"
        "    at global code (bundle.js:4:17)\n");
    expectUncaught("const { port1, port2 } = new MessageChannel();\n"
                   "port1.onmessage = () => { throw 'text' };\n"
                   "port2.postMessage(1);\n"
                   "port2.postMessage(2);\n",
                   "Uncaught 'text'\n");
}

TEST(Uncaught, InAShellTheOtherListenersAreCalled) {
    const Host host;
    host.write("bundle.js", "const target = new EventTarget();\n"
                            "target.addEventListener('go', () => { throw 'first' });\n"
                            "target.addEventListener('go', () => console.log('second'));\n"
                            "console.log(target.dispatchEvent(new Event('go')));\n");
    auto process = host.startWithInput({"shell", "bundle.js", "--memory"});
    process.closeInput();
    const auto result = process.wait();
    EXPECT_EQ(result.output, "second\ntrue\n");
    EXPECT_EQ(result.errors, "Uncaught 'first'\n");
    EXPECT_EQ(result.code, 0);
}

TEST(Uncaught, Rejections) {
    expectUncaught("async function f() {\n"
                   "    await null;\n"
                   "    throw new Error('rejected');\n"
                   "}\n"
                   "f();\n"
                   "setTimeout(() => console.log('never'), 5);\n",
                   "bundle.js:3:20: Uncaught (in promise) Error: rejected\n"
                   "    at f (bundle.js:3:20)\n");
    expectUncaught("setTimeout(() => Promise.reject(7))", "Uncaught (in promise) 7\n");
}

TEST(Uncaught, RejectionsThatAreHandledInTimeAreNone) {
    const Host host;
    const auto result = host.runScript("const p = Promise.reject(new Error('handled'));\n"
                                       "Promise.resolve().then(() => p.catch(e => "
                                       "console.log(e.message)));\n");
    EXPECT_EQ(result.output, "handled\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Uncaught, ValuesThatAreNoErrors) {
    expectUncaught("throw 'text'", "Uncaught 'text'\n");
    expectUncaught("throw { code: 3 }", "Uncaught { code: 3 }\n");
    expectUncaught("throw undefined", "Uncaught undefined\n");
}

TEST(Uncaught, ErrorsWithMoreToSay) {
    expectUncaught("throw Object.assign(new Error('two\\nlines', { cause: 'why' }), { code: 3 })",
                   "bundle.js:1:30: Uncaught Error: two\n"
                   "lines\n"
                   "    at global code (bundle.js:1:30) { cause: 'why', code: 3 }\n");
}

TEST(Uncaught, ErrorsOfTheGlobalsThemselvesAreTheCallers) {
    expectUncaught(
        "\n setTimeout();",
        "bundle.js:2:12: Uncaught TypeError: setTimeout: the callback is not a function\n"
        "    at global code (bundle.js:2:12)\n");
    expectUncaught("JSON.parse('{')",
                   "bundle.js:1:11: Uncaught SyntaxError: JSON Parse error: Expected '}'\n"
                   "    at parse ([native code])\n"
                   "    at global code (bundle.js:1:11)\n");
}

TEST(Uncaught, ErrorsThatCannotBeLookedAt) {
    expectUncaught("throw new Proxy(new Error('x'), { get() { throw new Error('trap') } })",
                   "Uncaught an object\n");
}

TEST(Uncaught, OnlyTheFirstIsReported) {
    expectUncaught("Promise.reject(new Error('first')); Promise.reject(new Error('second'))",
                   "bundle.js:1:25: Uncaught (in promise) Error: first\n"
                   "    at global code (bundle.js:1:25)\n");
}

TEST(Uncaught, TheBundleIsNamedAsItWasGiven) {
    const Host host;
    host.write("thrower.js", "throw new Error('x')");
    const std::string path = (host.folder() / "thrower.js").string();
    const auto result = host.run({"run", path, "--memory"});
    EXPECT_EQ(result.errors,
              path + ":1:16: Uncaught Error: x\n    at global code (" + path + ":1:16)\n");
    EXPECT_EQ(result.code, 1);
}

} // namespace
