#include <zem/Platform/RunLoop.h>

#include <gmock/gmock.h>

#include <Support/Wait.h>
#include <pthread.h>
#include <thread>

using namespace zem::platform;
using test::Arrival;
using test::Event;
using test::Transcript;
using testing::ElementsAre;

namespace {

std::size_t stackOfThisThread() {
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    void* address = nullptr;
    std::size_t size = 0;
    pthread_attr_getstack(&attributes, &address, &size);
    pthread_attr_destroy(&attributes);
    return size;
}

struct AtThreadEnd {
    std::function<void()> call;
    ~AtThreadEnd() {
        if (call) {
            call();
        }
    }
};
thread_local AtThreadEnd atThreadEnd;

} // namespace

TEST(RunLoopThread, RunsTasksOnAThreadOfItsOwn) {
    RunLoopThread thread("com.quorvane.zem.JavaScript");
    Arrival<bool> isCurrent("isCurrent");
    Arrival<bool> sameLoop("the thread's run loop");
    Arrival<std::string> name("its name");
    Arrival<std::size_t> stack("its stack");
    thread.runLoop()->perform([&] {
        isCurrent.put(thread.runLoop()->isCurrent());
        sameLoop.put(RunLoop::current() == thread.runLoop());
        char text[16];
        pthread_getname_np(pthread_self(), text, sizeof text);
        name.put(text);
        stack.put(stackOfThisThread());
    });
    EXPECT_TRUE(isCurrent.get());
    EXPECT_TRUE(sameLoop.get());
    EXPECT_EQ(name.get(), "com.quorvane.ze");
    EXPECT_GE(stack.get(), std::size_t{8} * 1024 * 1024);
    EXPECT_FALSE(thread.runLoop()->isCurrent());
}

TEST(RunLoopThread, LetsTheCollectorsSignalThrough) {
    RunLoopThread thread("signals");
    Arrival<bool> blocked("the signal mask");
    thread.runLoop()->perform([&] {
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        blocked.put(sigismember(&mask, SIGUSR1) == 1);
    });
    EXPECT_FALSE(blocked.get());
}

TEST(RunLoopThread, RunsWhatWasPerformedBeforeItIsDestroyed) {
    Transcript transcript;
    {
        RunLoopThread thread("ending");
        for (const char* name : {"first", "second", "third"}) {
            thread.runLoop()->perform([&, name] { transcript.add(name); });
        }
    }
    transcript.add("destroyed");
    EXPECT_THAT(transcript.lines(), ElementsAre("first", "second", "third", "destroyed"));
}

TEST(RunLoopThread, OutlivesAStopOfItsRunLoop) {
    RunLoopThread thread("stopped");
    thread.runLoop()->stop();
    Event after("a task after the stop");
    thread.runLoop()->perform([&] { after.signal(); });
    after.wait();
    EXPECT_EQ(after.signalled(), 1);
}

TEST(RunLoopThread, EndsWhileOneOfItsTasksRunsTheLoop) {
    Transcript transcript;
    {
        RunLoopThread thread("nested");
        Event nested("the nested run");
        thread.runLoop()->perform([&, loop = thread.runLoop()] {
            loop->perform([&] { nested.signal(); });
            loop->run();
            transcript.add("nested run returned");
        });
        nested.wait();
    }
    transcript.add("joined");
    EXPECT_THAT(transcript.lines(), ElementsAre("nested run returned", "joined"));
}

TEST(RunLoopThread, MayBeDestroyedByOneOfItsOwnTasks) {
    Transcript transcript;
    Event given("the thread handed over");
    Event ended("the end of the thread");
    auto thread = std::make_unique<RunLoopThread>("self");
    RunLoopThread& alive = *thread;
    alive.runLoop()->perform([&, thread = std::move(thread)]() mutable {
        given.wait();
        atThreadEnd.call = [&] {
            transcript.add("thread ended");
            ended.signal();
        };
        thread.reset();
        transcript.add("destroyed");
    });
    alive.runLoop()->perform([&] { transcript.add("performed before"); });
    given.signal();
    ended.wait();
    EXPECT_THAT(transcript.lines(), ElementsAre("destroyed", "performed before", "thread ended"));
}
