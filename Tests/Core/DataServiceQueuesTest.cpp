// The queues of a data service's work, and the order in which it passes answers on.

#include <zem/Core/DataService.h>
#include <zem/Platform/Log.h>

#include <gtest/gtest.h>

#include <Core/ServiceRuntime.h>
#include <atomic>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace zem;
using platform::QualityOfService;
using platform::Seconds;
using platform::SerialQueue;
using test::HeldQueue;
using test::Results;
using test::ServiceRuntime;
using Lines = std::vector<std::string>;

/// The serial queue whose task this thread is running, with its quality of service.
std::string currentQueue() {
    const auto quality = SerialQueue::currentQualityOfService();
    if (!quality) {
        return "none";
    }
    return SerialQueue::currentLabel() +
           (*quality == QualityOfService::unspecified ? "" : " of another quality");
}

TEST(DataServiceQueues, DeliverOnTheCallbackQueue) {
    ServiceRuntime runtime;
    test::Journal queues("a result");
    const auto service = runtime.service();
    const ResultCallback callback = [&](const DataServiceResult&) {
        queues.add(currentQueue());
    };
    service->invokeAdapter("one", "{}", callback);
    service->invokeAdapterWithMetadata("two", "{}", {}, callback);
    service->invokeAdapterWithDraftToReplace("three", "{}", "7", callback);
    const Unsubscribe emitting = service->subscribeToAdapter("four", "{}", callback);
    runtime.calls.wait(4);
    for (int call = 0; call < 4; ++call) {
        runtime.answer(call, "{ data: {} }");
    }
    queues.wait(4);
    const Unsubscribe silent = service->subscribeToAdapter("five", "{}", callback);
    test::waitForSubscriptions(*service, 2);
    runtime.clock->advance(Seconds(180));
    EXPECT_EQ(queues.wait(5), Lines(5, "com.quorvane.data.service.callback-queue"));
    emitting();
    silent();
}

/// The state that a service hands over when it delivers on `queue`.
DataServiceState stateOf(const std::shared_ptr<SerialQueue>& queue,
                         platform::RunLoop::TimePoint now) {
    DataServiceState state;
    state.subscriptions.push_back(
        std::make_shared<BatchingSubscription<ResultCallback, WireSubscription>>(
            [](const DataServiceResult&) {}, now,
            WireSubscription::create("known", "{}", std::nullopt,
                                     platform::OperationQueue::create(), queue)));
    return state;
}

TEST(DataServiceQueues, DeliverEverythingOnTheQueueOfWhatWasHandedOver) {
    ServiceRuntime runtime;
    test::Journal queues("a result");
    const auto service =
        runtime.service(stateOf(SerialQueue::create("handed over"), runtime.clock->now()));
    const ResultCallback callback = [&](const DataServiceResult&) {
        queues.add(SerialQueue::currentLabel());
    };
    service->invokeAdapter("one", "{}", callback);
    const Unsubscribe end = service->subscribeToAdapter("two", "{}", callback);
    runtime.calls.wait(3);
    runtime.emit("one", "{ data: {} }");
    runtime.emit("two", "{ data: {} }");
    EXPECT_EQ(queues.wait(2), Lines(2, "handed over"));
    end();
}

/// Writes down on which queue a service hands its state over.
class HandOverSink final : public platform::SignpostSink {
  public:
    explicit HandOverSink(test::Transcript& transcript)
        : transcript(transcript) {}

    void emit(const platform::Signpost& signpost) override {
        if (signpost.category == "DataService") {
            transcript.add(std::string(signpost.name) + " on " + currentQueue());
        }
    }

  private:
    test::Transcript& transcript;
};

TEST(DataServiceQueues, HandOverOnTheLockQueue) {
    test::Transcript transcript;
    ServiceRuntime runtime;
    const auto service = runtime.service();
    platform::setSignpostSink(std::make_shared<HandOverSink>(transcript));
    (void)service->takeState();
    platform::setSignpostSink(nullptr);
    EXPECT_EQ(transcript.lines(),
              Lines{"takeState on com.quorvane.data.service.subscription-lock-queue"});
}

/// Takes all global threads but one, and the one until it is let go.
class HeldThreads {
  public:
    HeldThreads() {
        for (int thread = 0; thread < threads; ++thread) {
            platform::globalQueue().async([this, isFirst = thread == 0] {
                taken.signal();
                (isFirst ? oneReleased : allReleased).wait();
                left.signal();
            });
        }
        taken.wait(threads);
    }
    ~HeldThreads() {
        allReleased.signal();
        left.wait(threads);
    }
    HeldThreads(const HeldThreads&) = delete;
    HeldThreads& operator=(const HeldThreads&) = delete;

    void releaseOne() { oneReleased.signal(); }

  private:
    static constexpr int threads = 64;
    test::Event taken{"a global thread"};
    test::Event oneReleased{"the release of a global thread"};
    test::Event allReleased{"the release of all global threads"};
    test::Event left{"the end of a held thread"};
};

TEST(DataServiceQueues, SweepOnTheGlobalQueueWithTheDefaultQuality) {
    ServiceRuntime runtime;
    Results results;
    const auto service = runtime.service();
    const Unsubscribe silent = service->subscribeToAdapter("silent", "{}", results.callback());
    test::waitForSubscriptions(*service, 1);
    test::Transcript transcript;
    test::Event last("the last of the tasks");
    const auto add = [&](const std::string& name, QualityOfService quality) {
        platform::globalQueue(quality).async([&transcript, &last, name] {
            transcript.add(name);
            if (name == "utility") {
                last.signal();
            }
        });
    };
    platform::setLogWriter([&](const platform::LogLine&) {
        transcript.add("sweep, on serial queue: " + currentQueue());
    });
    const std::shared_ptr<void> restored(nullptr, [](void*) { platform::setLogWriter(nullptr); });
    {
        // One thread runs what waits, the best first and then first come, first served.
        HeldThreads held;
        add("utility", QualityOfService::utility);
        add("before", QualityOfService::unspecified);
        runtime.clock->advance(Seconds(180));
        add("after", QualityOfService::unspecified);
        add("user initiated", QualityOfService::userInitiated);
        EXPECT_EQ(transcript.lines(), Lines{});
        held.releaseOne();
        last.wait();
    }
    EXPECT_EQ(transcript.lines(), (Lines{"user initiated", "before", "sweep, on serial queue: none",
                                         "after", "utility"}));
    EXPECT_EQ(results.wait(1), Lines{"executeAdapter error - .executeAdapterTimeout"});
    silent();
}

/// A lane that writes down, on the callback queue of a service, when a slot has become free for an
/// operation that waits in it.
class SlotWatch {
  public:
    SlotWatch(Results& results, std::shared_ptr<SerialQueue> callbackQueue)
        : lane(std::make_shared<Lane>(results, std::move(callbackQueue))) {
        operation->setLane(lane);
        SharedPriorityQueue::priority()->addOperation(operation);
    }
    ~SlotWatch() { operation->finish(); }
    SlotWatch(const SlotWatch&) = delete;
    SlotWatch& operator=(const SlotWatch&) = delete;

  private:
    class Lane final : public platform::Queue {
      public:
        Lane(Results& results, std::shared_ptr<SerialQueue> callbackQueue)
            : results(results)
            , callbackQueue(std::move(callbackQueue)) {}

        void async(platform::Task task) override {
            if (!wasAsked.exchange(true)) {
                callbackQueue->async([this] { results.add("the slot is free"); });
            }
            platform::globalQueue().async(std::move(task));
        }

      private:
        Results& results;
        const std::shared_ptr<SerialQueue> callbackQueue;
        std::atomic<bool> wasAsked = false;
    };

    const std::shared_ptr<Lane> lane;
    const std::shared_ptr<AdapterInvokeOperation> operation =
        AdapterInvokeOperation::create(AdapterRequestPriority::high);
};

/// A service whose callback queue is known, and that has the only free slot of the shared queue.
class DataServiceSlot : public testing::Test {
  protected:
    DataServiceSlot() {
        held.releaseOne();
        service = runtime.service(stateOf(callbackQueue, runtime.clock->now()));
        runtime.emit("known", "{ data: {} }");
    }

    /// The call that was started last is over, and holds its slot until it is answered.
    void finishStarting() {
        test::Event over("the end of the lane's turn");
        runtime.context.lane()->async([&] { over.signal(); });
        over.wait();
    }

    ServiceRuntime runtime;
    Results results;
    const std::shared_ptr<SerialQueue> callbackQueue = SerialQueue::create("known to the test");
    HeldQueue held;
    std::shared_ptr<DataService> service;
};

TEST_F(DataServiceSlot, OfACallIsGivenBackWhenItsResultIsOnItsWay) {
    service->invokeAdapter("call", "{}", results.callback());
    runtime.calls.wait(2);
    finishStarting();
    const SlotWatch watch(results, callbackQueue);
    runtime.answer(1, "{ data: {} }");
    EXPECT_EQ(results.wait(2), (Lines{"{}", "the slot is free"}));
}

TEST_F(DataServiceSlot, OfASubscriptionIsGivenBackBeforeItsFirstResultIsOnItsWay) {
    const Unsubscribe end = service->subscribeToAdapter("list", "{}", results.callback());
    runtime.calls.wait(2);
    finishStarting();
    const SlotWatch watch(results, callbackQueue);
    runtime.answer(1, "{ data: {} }");
    EXPECT_EQ(results.wait(2), (Lines{"the slot is free", "{}"}));
    end();
}

TEST_F(DataServiceSlot, OfASilentSubscriptionIsGivenBackWhenItsTimeoutIsOnItsWay) {
    const Unsubscribe end = service->subscribeToAdapter("list", "{}", results.callback());
    test::waitForSubscriptions(*service, 2);
    finishStarting();
    const SlotWatch watch(results, callbackQueue);
    runtime.clock->advance(Seconds(180));
    EXPECT_EQ(results.wait(2),
              (Lines{"executeAdapter error - .executeAdapterTimeout", "the slot is free"}));
    end();
}

} // namespace
