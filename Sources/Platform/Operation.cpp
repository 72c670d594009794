#include <zem/Platform/Operation.h>
#include <zem/Platform/Private/OperationQueueState.h>

#include <utility>

namespace zem::platform {

namespace {

constexpr std::string_view executingKey = "isExecuting";
constexpr std::string_view finishedKey = "isFinished";
constexpr std::string_view cancelledKey = "isCancelled";

} // namespace

bool Operation::isAsynchronous() const {
    return false;
}

bool Operation::isExecuting() const {
    Lock lock(mutex);
    return executing;
}

bool Operation::isFinished() const {
    Lock lock(mutex);
    return finished;
}

bool Operation::isCancelled() const {
    Lock lock(mutex);
    return cancelled;
}

void Operation::start() {
    {
        Lock lock(mutex);
        if (started) {
            return;
        }
        started = true;
    }
    if (isCancelled()) {
        willChangeValue(finishedKey);
        {
            Lock lock(mutex);
            finished = true;
        }
        didChangeValue(finishedKey);
        return;
    }

    willChangeValue(executingKey);
    {
        Lock lock(mutex);
        executing = true;
    }
    didChangeValue(executingKey);

    Mutex::assertNoneHeld("an operation runs");
    main();

    willChangeValue(executingKey);
    willChangeValue(finishedKey);
    {
        Lock lock(mutex);
        executing = false;
        finished = true;
    }
    didChangeValue(finishedKey);
    didChangeValue(executingKey);
}

void Operation::main() {}

void Operation::cancel() {
    {
        Lock lock(mutex);
        if (cancelled || finished) {
            return;
        }
    }
    willChangeValue(cancelledKey);
    {
        Lock lock(mutex);
        cancelled = true;
    }
    didChangeValue(cancelledKey);
}

QueuePriority Operation::queuePriority() const {
    Lock lock(mutex);
    return priority;
}

void Operation::setQueuePriority(QueuePriority newPriority) {
    Lock lock(mutex);
    priority = newPriority;
}

void Operation::setLane(std::shared_ptr<Queue> newLane) {
    lane = std::move(newLane);
}

void Operation::addObserver(Observer observer) {
    Lock lock(mutex);
    auto extended = observers == nullptr ? std::make_shared<std::vector<Observer>>()
                                         : std::make_shared<std::vector<Observer>>(*observers);
    extended->push_back(std::move(observer));
    observers = std::move(extended);
    observed.store(true, std::memory_order_release);
}

void Operation::willChangeValue(std::string_view key) {
    notify(key, Change::will);
}

void Operation::didChangeValue(std::string_view key) {
    notify(key, Change::did);
    if (key == finishedKey) {
        OperationQueueState* told = nullptr; // lives as long as this does
        {
            Lock lock(mutex);
            told = queue.get();
        }
        if (told != nullptr && isFinished()) {
            told->finish(*this);
        }
    }
}

void Operation::notify(std::string_view key, Change change) {
    if (!observed.load(std::memory_order_acquire)) {
        return;
    }
    std::shared_ptr<const std::vector<Observer>> told;
    {
        Lock lock(mutex);
        told = observers;
    }
    Mutex::assertNoneHeld("an operation's observers are called");
    for (const Observer& observer : *told) {
        observer(*this, key, change);
    }
}

std::shared_ptr<BlockOperation> BlockOperation::create(Task block, QueuePriority priority) {
    std::shared_ptr<BlockOperation> operation(new BlockOperation(std::move(block)));
    operation->setQueuePriority(priority);
    return operation;
}

BlockOperation::BlockOperation(Task block)
    : block(std::move(block)) {}

void BlockOperation::main() {
    Task task = std::exchange(block, nullptr);
    task();
}

} // namespace zem::platform
