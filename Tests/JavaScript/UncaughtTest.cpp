// Uncaught exceptions: a handler gets them, and without one the log does.

#include <zem/JavaScript/Context.h>
#include <zem/Platform/Log.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/Wait.h>
#include <string>
#include <vector>

namespace {

using zem::js::Context;
using zem::js::Exception;
using zem::js::Scope;
using Lines = std::vector<std::string>;

void reportUncaught(const Context& context, const char* script) {
    context.perform([&](Scope& scope) {
        context.reportUncaught(scope, scope.evaluate(script, "callback.js").error());
    });
}

TEST(Uncaught, GoesToTheHandlerInsideTheEngine) {
    const Context context = test::makeContext();
    test::Transcript transcript;
    context.setUncaughtHandler([&](Scope& scope, const Exception& exception) {
        transcript.add(exception.text() + " at " + exception.place());
        transcript.add(scope.describe(*scope.evaluate("'still ' + 'usable'", "")));
    });
    reportUncaught(context, "throw new Error('lost')");
    EXPECT_EQ(transcript.lines(), (Lines{"Error: lost at callback.js:1:16", "still usable"}));
    context.setUncaughtHandler(nullptr);
}

TEST(Uncaught, AHandlerMayReplaceItself) {
    const Context context = test::makeContext();
    test::Transcript transcript;
    context.setUncaughtHandler([&](Scope&, const Exception&) {
        transcript.add("first");
        context.setUncaughtHandler([&](Scope&, const Exception&) { transcript.add("second"); });
    });
    reportUncaught(context, "throw 1");
    reportUncaught(context, "throw 2");
    EXPECT_EQ(transcript.lines(), (Lines{"first", "second"}));
    context.setUncaughtHandler(nullptr);
}

TEST(Uncaught, WithoutAHandlerIsLoggedWithItsTextHidden) {
    const Context context = test::makeContext();
    test::Transcript transcript;
    zem::platform::setLogWriter([&](const zem::platform::LogLine& line) {
        transcript.add(std::string(line.subsystem) + " " + std::string(line.category) + " " +
                       std::string(line.text));
    });
    reportUncaught(context, "throw new Error('secret')");
    zem::platform::setLogWriter(nullptr);
    EXPECT_EQ(transcript.lines(),
              Lines{"com.quorvane.ZEM JavaScript uncaught exception in a callback: <private>"});
}

} // namespace
