#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <Support/EngineEntry.h>
#include <Support/Wait.h>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace test {

namespace {

using zem::js::Context;
using zem::js::Kind;
using zem::js::Local;
using zem::js::Result;
using zem::js::Scope;
using zem::platform::RunLoopThread;

/// Overwrites the stack below the caller, which the callees that come next will lie on.
[[gnu::noinline]] void overwriteStack() {
    volatile char stack[256 * 1024];
    for (volatile char& byte : stack) {
        byte = 0;
    }
}

/// Checks the test's contexts when it is over and everything in it is destroyed.
class ContextCheck : public testing::EmptyTestEventListener {
  public:
    static ContextCheck& installed() {
        static ContextCheck* const listener = [] {
            auto* made = new ContextCheck;
            testing::UnitTest::GetInstance()->listeners().Append(made);
            return made;
        }();
        return *listener;
    }

    const std::shared_ptr<zem::platform::RunLoop>& runLoop() {
        if (thread == nullptr) {
            thread = std::make_unique<RunLoopThread>("engine");
        }
        return thread->runLoop();
    }

    void add(const Context& context) { contexts.push_back(context); }

    void OnTestEnd(const testing::TestInfo&) override {
        for (Context& context : std::exchange(contexts, {})) {
            expectNoHandles(context);
        }
    }

    void OnTestProgramEnd(const testing::UnitTest&) override { thread.reset(); }

  private:
    static void expectNoHandles(const Context& context) {
        // Other threads may still be on their way out of what the test has heard the end of.
        const auto limit = std::chrono::steady_clock::now() + leavingLimit;
        test::collectGarbage(context);
        while (context.handleCount() != 0 && std::chrono::steady_clock::now() < limit) {
            std::this_thread::yield();
            test::collectGarbage(context);
        }
        EXPECT_EQ(context.handleCount(), 0u) << "handles outlive the test";
    }

    static constexpr std::chrono::seconds leavingLimit{10};

    std::unique_ptr<RunLoopThread> thread;
    std::vector<Context> contexts;
};

std::string kindText(Kind kind) {
    std::string text = zem::js::nameOf(kind);
    for (const std::string_view article : {"a ", "an "}) {
        if (text.starts_with(article)) {
            return text.substr(article.size());
        }
    }
    return text;
}

std::string valueText(Scope& scope, Local value) {
    const Kind kind = scope.kind(value);
    if (kind == Kind::object || kind == Kind::array) {
        const Result<std::optional<std::string>> json = scope.stringify(value);
        return json && *json ? **json : "(no JSON)";
    }
    return scope.describe(value);
}

} // namespace

Context makeUncheckedContext() {
    return engineEntry == EngineEntry::bound ? Context::create(engineRunLoop()) : Context::create();
}

Context makeContext() {
    Context context = makeUncheckedContext();
    ContextCheck::installed().add(context);
    return context;
}

std::shared_ptr<zem::platform::RunLoop> engineRunLoop() {
    return engineEntry == EngineEntry::bound ? ContextCheck::installed().runLoop() : nullptr;
}

void onEngineThread(const std::function<void()>& work) {
    const auto loop = engineRunLoop();
    if (loop == nullptr) {
        work();
        return;
    }
    Event done("the application's work");
    loop->perform([&] {
        work();
        done.signal();
    });
    done.wait();
}

void expectEval(const Context& context, std::string_view script, std::string_view type,
                std::string_view value, std::source_location where) {
    const auto [foundType, foundValue] = context.perform([&](Scope& scope) {
        const Result<Local> result = scope.evaluate(script, "test.js");
        return result ? std::pair(kindText(scope.kind(*result)), valueText(scope, *result))
                      : std::pair(std::string("exception"), result.error().text());
    });
    if (foundType != type || foundValue != value) {
        ADD_FAILURE_AT(where.file_name(), static_cast<int>(where.line()))
            << script << "\n  gives     " << foundType << ": " << foundValue << "\n  expected  "
            << type << ": " << value;
    }
}

void evaluate(const Context& context, std::string_view script, std::source_location where) {
    const std::string thrown = context.perform([&](Scope& scope) {
        const Result<Local> result = scope.evaluate(script, "test.js");
        return result ? std::string() : result.error().place() + ": " + result.error().text();
    });
    if (!thrown.empty()) {
        ADD_FAILURE_AT(where.file_name(), static_cast<int>(where.line()))
            << script << "\n  throws    " << thrown;
    }
}

void performApart(const Context& context, const std::function<void(Scope&)>& work) {
    if (engineEntry == EngineEntry::bound) {
        context.perform(work);
    } else {
        std::thread([&] { context.perform(work); }).join();
    }
}

void collectGarbage(const Context& context) {
    // From as far out as the entry begins, and before it: no slot of its frames is left out.
    if (const auto loop = engineRunLoop()) {
        loop->perform(overwriteStack);
    } else {
        overwriteStack();
    }
    context.collectGarbage();
}

void letOthersIn(Scope& scope) {
    for (int step = 0; step < 5; ++step) {
        std::this_thread::yield();
        EXPECT_TRUE(scope.evaluate("'a step'", "test.js"));
    }
}

void setFunction(const Context& context, std::string_view name, unsigned length,
                 zem::js::NativeFunction body) {
    context.perform([&](Scope& scope) {
        (void)scope.set(scope.global(), name, scope.function(name, length, std::move(body)));
    });
}

} // namespace test
