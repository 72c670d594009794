#include <zem/Platform/Log.h>
#include <zem/Platform/Mutex.h>

#include <gtest/gtest.h>

#include <Support/Wait.h>
#include <atomic>
#include <chrono>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace zem::platform;
using Lines = std::vector<std::string>;

class FunctionSink : public SignpostSink {
  public:
    explicit FunctionSink(std::function<void(const Signpost&)> emitted)
        : function(std::move(emitted)) {}
    void emit(const Signpost& signpost) override { function(signpost); }

  private:
    const std::function<void(const Signpost&)> function;
};

struct SinkGuard {
    explicit SinkGuard(std::function<void(const Signpost&)> function) {
        setSignpostSink(std::make_shared<FunctionSink>(std::move(function)));
    }
    ~SinkGuard() { setSignpostSink(nullptr); }
};

std::string described(const Signpost& signpost) {
    const char* type = signpost.type == SignpostType::event           ? "event"
                       : signpost.type == SignpostType::intervalBegin ? "begin"
                                                                      : "end";
    return std::string(type) + " " + std::to_string(signpost.id.value) + " " +
           std::string(signpost.subsystem) + "/" + std::string(signpost.category) + " " +
           std::string(signpost.name) + " " + std::string(signpost.format) + " " +
           formatLog(signpost.format, signpost.arguments);
}

const Log log_("subsystem", "category");

TEST(Signpost, TellsTheSinkEverythingOnTheThreadThatEmits) {
    test::Transcript transcript;
    const auto here = std::this_thread::get_id();
    SinkGuard guard([&](const Signpost& signpost) {
        EXPECT_EQ(std::this_thread::get_id(), here);
        transcript.add(described(signpost));
    });
    const SignpostID id = log_.makeSignpostID();
    log_.beginInterval(id, "batch", "::operationCount:%{public}d", {2});
    log_.event(id, "transaction begin");
    log_.event(SignpostID::null(), "alone");
    log_.endInterval(id, "batch", "error: %{private}s", {"reason"});
    log_.endInterval(id, "query");
    const std::string number = std::to_string(id.value);
    EXPECT_EQ(
        transcript.lines(),
        (Lines{"begin " + number +
                   " subsystem/category batch ::operationCount:%{public}d ::operationCount:2",
               "event " + number + " subsystem/category transaction begin  ",
               "event 0 subsystem/category alone  ",
               "end " + number + " subsystem/category batch error: %{private}s error: <private>",
               "end " + number + " subsystem/category query  "}));
}

TEST(Signpost, DropsAnIntervalWithTheNullIdentifier) {
    test::Transcript transcript;
    SinkGuard guard([&](const Signpost& signpost) { transcript.add(described(signpost)); });
    log_.beginInterval(SignpostID::null(), "query");
    log_.endInterval(SignpostID::null(), "query");
    EXPECT_EQ(transcript.lines(), Lines{});
}

TEST(Signpost, IsDroppedByADisabledLog) {
    test::Transcript transcript;
    SinkGuard guard([&](const Signpost& signpost) { transcript.add(described(signpost)); });
    const Log disabled = Log::disabled();
    EXPECT_EQ(disabled.makeSignpostID(), SignpostID::null());
    const SignpostID id = log_.makeSignpostID();
    disabled.beginInterval(id, "query");
    disabled.event(id, "event");
    disabled.endInterval(id, "query");
    EXPECT_EQ(transcript.lines(), Lines{});
}

TEST(Signpost, DescribesNothingWithoutASink) {
    ASSERT_FALSE(hasSignpostSink());
    int count = 0;
    const LogArgument object([&] {
        ++count;
        return std::string();
    });
    const SignpostID id = log_.makeSignpostID();
    log_.beginInterval(id, "query", "%{public}@", {object});
    log_.endInterval(id, "query", "%{public}@", {object});
    EXPECT_EQ(count, 0);
}

TEST(Signpost, KnowsWhetherThereIsASink) {
    EXPECT_FALSE(hasSignpostSink());
    {
        SinkGuard guard([](const Signpost&) {});
        EXPECT_TRUE(hasSignpostSink());
    }
    EXPECT_FALSE(hasSignpostSink());
}

TEST(Signpost, IdentifiersAreFreshInTheWholeProcess) {
    std::vector<std::vector<std::uint64_t>> made(4);
    {
        std::vector<std::jthread> threads;
        threads.reserve(made.size());
        for (auto& mine : made) {
            threads.emplace_back([&mine] {
                const Log another("another", "log");
                for (int count = 0; count < 1000; ++count) {
                    mine.push_back((count % 2 == 0 ? log_ : another).makeSignpostID().value);
                }
            });
        }
    }
    std::set<std::uint64_t> all{0};
    for (const auto& mine : made) {
        all.insert(mine.begin(), mine.end());
    }
    EXPECT_EQ(all.size(), 4001U);
}

TEST(Signpost, ReplacingASinkWaitsForThoseInsideAndOnlyForThem) {
    test::Transcript transcript;
    test::Event entered("a thread is in the first sink");
    test::Event leave("the first sink may be left");
    SinkGuard guard([&](const Signpost& signpost) {
        if (signpost.name == "probe") {
            return;
        }
        transcript.add("first entered");
        entered.signal();
        leave.wait();
        transcript.add("first left");
    });
    std::jthread emitter([] { log_.event(SignpostID::null(), "event"); });
    entered.wait();

    test::Event heard("the second sink hears");
    const auto second = std::make_shared<FunctionSink>([&](const Signpost&) {
        if (heard.signalled() == 0) {
            transcript.add("second heard");
            heard.signal();
        }
    });
    std::jthread replacer([&] {
        setSignpostSink(second);
        transcript.add("replaced");
    });
    std::jthread prober([&] {
        const auto limit = std::chrono::steady_clock::now() + test::waitLimit;
        while (heard.signalled() == 0 && std::chrono::steady_clock::now() < limit) {
            log_.event(SignpostID::null(), "probe");
        }
    });
    heard.wait();
    leave.signal();
    replacer.join();
    prober.join();
    emitter.join();
    EXPECT_EQ(transcript.lines(),
              (Lines{"first entered", "second heard", "first left", "replaced"}));
}

TEST(Signpost, NoThreadIsInASinkThatWasReplaced) {
    class Sink : public SignpostSink {
      public:
        explicit Sink(std::atomic<int>& count)
            : late(count) {}
        ~Sink() override { EXPECT_EQ(inside, 0); }
        void emit(const Signpost&) override {
            ++inside;
            late += gone ? 1 : 0;
            ++heard;
            --inside;
        }
        std::atomic<int> inside = 0;
        std::atomic<int> heard = 0;
        std::atomic<bool> gone = false;
        std::atomic<int>& late;
    };

    std::atomic<bool> stop = false;
    std::vector<std::jthread> emitters;
    emitters.reserve(3);
    for (int count = 0; count < 3; ++count) {
        emitters.emplace_back([&] {
            while (!stop) {
                const SignpostID id = log_.makeSignpostID();
                log_.beginInterval(id, "query", "%{public}d", {1});
                log_.endInterval(id, "query");
            }
        });
    }
    std::atomic<int> late = 0;
    for (int round = 0; round < 100; ++round) {
        auto sink = std::make_shared<Sink>(late);
        const std::weak_ptr<Sink> weak = sink;
        setSignpostSink(sink);
        while (sink->heard == 0) {
            std::this_thread::yield();
        }
        if (round % 2 == 0) {
            setSignpostSink(nullptr);
        } else {
            setSignpostSink(std::make_shared<Sink>(late));
        }
        sink->gone = true;
        EXPECT_EQ(sink->inside, 0);
        EXPECT_EQ(sink.use_count(), 1);
        sink.reset();
        EXPECT_TRUE(weak.expired());
    }
    setSignpostSink(nullptr);
    stop = true;
    emitters.clear();
    EXPECT_EQ(late, 0);
}

TEST(Signpost, LetsASinkEmitAndWaitForOthersThatDo) {
    test::Transcript transcript;
    SinkGuard guard([&](const Signpost& signpost) {
        transcript.add(std::string(signpost.name));
        if (signpost.name == "outer") {
            log_.event(SignpostID::null(), "inner");
            std::jthread([] { log_.event(SignpostID::null(), "elsewhere"); }).join();
        }
    });
    log_.event(SignpostID::null(), "outer");
    EXPECT_EQ(transcript.lines(), (Lines{"outer", "inner", "elsewhere"}));
}

TEST(Signpost, ASinkThatThrowsHasBeenLeft) {
    {
        SinkGuard guard([](const Signpost&) { throw std::runtime_error("sink"); });
        EXPECT_THROW(log_.event(SignpostID::null(), "event"), std::runtime_error);
    }
    EXPECT_FALSE(hasSignpostSink());
}

TEST(CurrentSignpost, IsOfTheThreadAndNests) {
    EXPECT_EQ(currentSignpostID(), SignpostID::null());
    const CurrentSignpost outer(SignpostID{7});
    {
        const CurrentSignpost inner(SignpostID{8});
        EXPECT_EQ(currentSignpostID(), SignpostID{8});
        std::jthread([] { EXPECT_EQ(currentSignpostID(), SignpostID::null()); }).join();
    }
    EXPECT_EQ(currentSignpostID(), SignpostID{7});
}

TEST(SignpostDeathTest, RefusesToCallASinkUnderALock) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(
        {
            SinkGuard guard([](const Signpost&) {});
            Mutex mutex;
            Lock lock(mutex);
            log_.event(SignpostID::null(), "event");
        },
        "a lock is held while a signpost is emitted");
}

} // namespace
