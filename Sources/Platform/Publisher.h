#pragma once

// Streams of values: a publisher hands each subscriber a subscription, then values, then at most
// one completion. Names and roles are those of reactive streams.
//
// These rules hold for all of them: nothing here is thrown; every call may come on any thread; no
// lock is held while one side calls the other, and each side may call back before the call returns.

#include <zem/Platform/Cancellable.h>
#include <zem/Platform/Mutex.h>

#include <compare>
#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

namespace zem::platform {

/// How many values a subscriber is ready to take: a count, or any number of them.
class Demand {
  public:
    static constexpr Demand unlimited() { return Demand(std::nullopt); }
    static constexpr Demand max(std::uint64_t count) { return Demand(count); }
    static constexpr Demand none() { return max(0); }

    /// Absent when it is unlimited.
    constexpr std::optional<std::uint64_t> count() const { return limit; }
    bool operator==(const Demand&) const = default;

  private:
    constexpr explicit Demand(std::optional<std::uint64_t> limit)
        : limit(limit) {}
    std::optional<std::uint64_t> limit;
};

/// How a stream ended: by a failure, or else because there is no more.
template <class Failure>
struct Completion {
    std::optional<Failure> failure;
    bool operator==(const Completion&) const = default;
};

/// Tells one subscription of the process from every other; never used twice.
class CombineIdentifier {
  public:
    CombineIdentifier();
    auto operator<=>(const CombineIdentifier&) const = default;

  private:
    std::uint64_t number;
};

/// A subscriber's end of a stream. Dropping it without cancelling it says nothing to the publisher.
class Subscription : public Cancellable {
  public:
    /// Adds to what may be delivered. A publisher of events that it cannot hold back may ignore it.
    /// Does nothing once cancelled.
    virtual void request(Demand demand) = 0;
    virtual CombineIdentifier combineIdentifier() const = 0;
};

/// The publisher keeps it alive while it calls it, and calls it for one thing at a time.
template <class Output, class Failure>
class Subscriber {
  public:
    virtual ~Subscriber() = default;

    /// Once. A publisher whose source is already running may deliver values, and the completion
    /// too, before.
    virtual void receive(std::shared_ptr<Subscription> subscription) = 0;
    /// Once for each value, in their order; returns what is demanded beyond the demand so far.
    virtual Demand receive(const Output& value) = 0;
    /// At most once, and after the last value. A cancelled stream has no completion.
    virtual void receive(const Completion<Failure>& completion) = 0;
};

template <class Output, class Failure>
class Publisher {
  public:
    virtual ~Publisher() = default;

    /// Starts a stream of its own for each subscriber, which it keeps until that has ended.
    virtual void receive(std::shared_ptr<Subscriber<Output, Failure>> subscriber) const = 0;
};

/// A publisher whose own type is not told. Copies share it.
template <class Output, class Failure>
class AnyPublisher final : public Publisher<Output, Failure> {
  public:
    template <class Erased>
        requires(!std::same_as<Erased, AnyPublisher> &&
                 std::derived_from<Erased, Publisher<Output, Failure>>)
    explicit AnyPublisher(Erased publisher)
        : publisher(std::make_shared<const Erased>(std::move(publisher))) {}

    void receive(std::shared_ptr<Subscriber<Output, Failure>> subscriber) const override {
        publisher->receive(std::move(subscriber));
    }

  private:
    std::shared_ptr<const Publisher<Output, Failure>> publisher;
};

/// The subscriber behind `sink`.
template <class Output, class Failure>
class Sink final : public Subscriber<Output, Failure>, public Cancellable {
  public:
    struct Closures {
        std::function<void(const Completion<Failure>&)> receiveCompletion;
        std::function<void(const Output&)> receiveValue;
    };
    explicit Sink(Closures closures)
        : closures(std::make_shared<const Closures>(std::move(closures))) {}

    // A call may drop the last reference to this: none of these touches a member after it.

    void receive(std::shared_ptr<Subscription> offered) noexcept override {
        Mutex::assertNoneHeld("a subscription is received");
        bool taken = false;
        {
            Lock lock(mutex);
            if (!cancelled && !subscription) {
                subscription = offered;
                taken = true;
            }
        }
        if (taken) {
            offered->request(Demand::unlimited());
        } else {
            offered->cancel();
        }
    }

    Demand receive(const Output& value) noexcept override {
        Mutex::assertNoneHeld("a value is received");
        std::shared_ptr<const Closures> called;
        {
            Lock lock(mutex);
            called = closures;
        }
        if (called && called->receiveValue) {
            called->receiveValue(value);
        }
        return Demand::none();
    }

    void receive(const Completion<Failure>& completion) noexcept override {
        Mutex::assertNoneHeld("a completion is received");
        std::shared_ptr<const Closures> called;
        {
            Lock lock(mutex);
            called.swap(closures);
        }
        if (called && called->receiveCompletion) {
            called->receiveCompletion(completion);
        }
    }

    void cancel() noexcept override {
        Mutex::assertNoneHeld("a sink is cancelled");
        std::shared_ptr<Subscription> ended;
        std::shared_ptr<const Closures> dropped;
        {
            Lock lock(mutex);
            cancelled = true;
            ended.swap(subscription);
            dropped.swap(closures);
        }
        if (ended) {
            ended->cancel();
        }
    }

  private:
    Mutex mutex;
    bool cancelled = false;
    std::shared_ptr<Subscription> subscription;
    // Absent once nothing more is to be delivered. A call in progress has a reference of its own,
    // so that closures are never destroyed while they run.
    std::shared_ptr<const Closures> closures;
};

/// Subscribes to `publisher` with unlimited demand, and calls `receiveValue` for each value and
/// `receiveCompletion` at most once, after which neither is called again; on the threads on which
/// the publisher delivers, maybe before this returns, and before there is a subscription too.
/// Either may be empty. An exception that leaves one of them ends the process.
///
/// Cancelling or destroying what is returned cancels the subscription (one that comes later, when
/// it comes), and no call of a closure begins after that, except for a delivery that another thread
/// had already begun: cancelling does not wait. Either closure may cancel. The closures are let go
/// with the completion or when cancelled, or by the call that is still in one; the subscription
/// only when cancelled, as a source may outlive its stream's failure.
template <class Output, class Failure>
[[nodiscard]] AnyCancellable
sink(const Publisher<Output, Failure>& publisher,
     std::type_identity_t<std::function<void(const Completion<Failure>&)>> receiveCompletion,
     std::type_identity_t<std::function<void(const Output&)>> receiveValue) {
    auto subscriber =
        std::make_shared<Sink<Output, Failure>>(typename Sink<Output, Failure>::Closures{
            std::move(receiveCompletion), std::move(receiveValue)});
    AnyCancellable cancellable([subscriber] { subscriber->cancel(); });
    publisher.receive(std::move(subscriber));
    return cancellable;
}

} // namespace zem::platform
