// An application of its own, built with or without NDEBUG whatever the library was built with. It
// shares with the library all that has a mutex inside: futures, publishers, cancellables and
// operations. Given the word "held" it breaks the law on locks instead, and says when the library
// let it.

#include <zem/Platform/Cancellable.h>
#include <zem/Platform/Future.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/Operation.h>
#include <zem/Platform/Publisher.h>
#include <zem/Platform/Queue.h>

#include <Support/Detached.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

using namespace zem::platform;

namespace {

constexpr Seconds limit{120};

void expect(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "expected that %s\n", what);
        std::exit(1);
    }
}

test::Detached awaitSum(Future<int> left, Future<int> right, Promise<int> sum) {
    const int first = co_await left;
    sum.complete(first + co_await right);
}

void useFutures() {
    const auto queue = SerialQueue::create("futures");
    const Promise<int> early(0);
    const Promise<int> late(0);
    const Promise<int> sum(0);
    const Promise<int> doubled(0);
    early.complete(1);
    awaitSum(early.future(), late.future(), sum);
    sum.future().then([doubled](int value) { doubled.complete(2 * value); });
    queue->async([late] { late.complete(2); });
    expect(doubled.future().wait(limit) == 6, "a future is continued with a sum of two others");

    std::optional<Future<int>> dropped;
    {
        const Promise<int> promise(7);
        dropped = promise.future();
    }
    expect(dropped->wait(limit) == 7, "a dropped promise completes with its fall-back");
}

class NoSubscription final : public Subscription {
  public:
    void request(Demand demand) override {
        expect(demand == Demand::unlimited(), "a sink demands without limit");
    }
    void cancel() override {}
    CombineIdentifier combineIdentifier() const override { return identifier; }

  private:
    const CombineIdentifier identifier;
};

/// Counts to three for each subscriber.
class Count final : public Publisher<int, std::string> {
  public:
    void receive(std::shared_ptr<Subscriber<int, std::string>> subscriber) const override {
        subscriber->receive(std::make_shared<NoSubscription>());
        for (int number = 1; number <= 3; ++number) {
            subscriber->receive(number);
        }
        subscriber->receive(Completion<std::string>{});
    }
};

void usePublishers() {
    std::vector<int> values;
    bool completed = false;
    const AnyPublisher<int, std::string> publisher((Count()));
    AnyCancellable cancellable = sink(
        publisher, [&](const Completion<std::string>&) { completed = true; },
        [&](int value) { values.push_back(value); });
    cancellable.cancel();
    expect(completed && values == std::vector{1, 2, 3}, "a sink receives a whole stream");

    int cancelled = 0;
    {
        AnyCancellable first([&] { ++cancelled; });
        AnyCancellable second = std::move(first);
        first = AnyCancellable([&] { ++cancelled; });
    }
    expect(cancelled == 2, "two cancellables cancel once each");
}

/// Its own state lies behind that of the library's class.
class Answering final : public Operation {
  public:
    explicit Answering(Promise<int> answer)
        : answer(std::move(answer)) {}

  protected:
    void main() override {
        {
            const Lock lock(mutex);
            ++runs;
        }
        answer.complete(runs);
    }

  private:
    const Promise<int> answer;
    Mutex mutex;
    int runs = 41;
};

void useOperations() {
    const auto lane = SerialQueue::create("operations");
    const auto queue = OperationQueue::create(1);
    const Promise<int> answer(0);
    const auto operation = std::make_shared<Answering>(answer);
    operation->setLane(lane);
    queue->addOperation(operation);
    expect(answer.future().wait(limit) == 42, "an operation of the application's own runs");
    lane->sync([] {});
    expect(operation->isFinished(), "an operation that has run is finished");
}

void waitWithALockHeld() {
    // The test reads what the library says; a process that aborts would fail it.
    std::signal(SIGABRT, [](int) { std::_Exit(0); });
    const auto queue = SerialQueue::create("waited for");
    Mutex mutex;
    const Lock lock(mutex);
    queue->sync([] {});
    std::puts("waited with a lock held");
}

} // namespace

int main(int count, char** arguments) {
    if (count == 2 && arguments[1] == std::string("held")) {
        waitWithALockHeld();
        return 0;
    }
    useFutures();
    usePublishers();
    useOperations();
}
