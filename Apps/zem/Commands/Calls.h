#pragma once

// What the commands have asked of the runtime, and what came of it.

#include "Process/Ending.h"
#include "Report.h"
#include "Runtime/RuntimeParts.h"
#include <zem/Platform/Mutex.h>
#include <zem/Platform/RunLoop.h>
#include <zem/Tessel/Activity.h>

#include <atomic>
#include <cstddef>
#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace zem::host {

class Call;

/// What came of a call, or the text of its failure.
using CallResult = std::expected<Shown, std::string>;

/// Called with what comes of a call, on any thread. A call that is answered by nothing has failed
/// when the last copy is gone.
using CallAnswer = std::function<void(const CallResult&)>;

/// Prints what arrives; answers what is still awaited. Thread-safe.
class Calls : public std::enable_shared_from_this<Calls> {
  public:
    enum class Kind {
        invocation,
        subscription,
        ttl,
        /// An operation on drafts that is answered.
        drafts,
        /// One that is not: it is done when the runtime has been told.
        draftsOrder
    };

    Calls(Report report, std::shared_ptr<Ending> ending,
          std::shared_ptr<tessel::Activity> activity);

    /// The origin's name is the call's; where it has none it gets one: i1, i2 ... for invocations,
    /// s1, s2 ... for subscriptions, d1, d2 ... for drafts. Throws a CommandFailure when the name
    /// is taken. `what` follows the name where people read it. A TTL replaces the one before that
    /// was not heard of.
    std::shared_ptr<Call> add(Kind kind, RuntimePart part, CommandOrigin origin,
                              const std::string& what);

    static const std::string& nameOf(const Call& call);

    /// Takes a subscription out. Throws a CommandFailure when there is none of that name.
    void removeSubscription(const std::string& name);

    /// Takes a call out: what comes for it is dropped.
    void remove(Call& call);

    std::vector<std::string> subscriptionNames() const;

    /// A result is there.
    void arrived(Call& call, const CallResult& result);

    /// The same for a call that is answered once.
    CallAnswer answer(std::shared_ptr<Call> call);

    /// It is known which parts of the runtime are there: the run does not end before these have
    /// answered, and what was asked of the others has failed, once.
    void runtimeIsMissing(const MissingParts& missing);

    /// A failed command: prints the text, and ends the run where the command must not fail.
    void failed(const CommandOrigin& origin, const std::string& label, const std::string& error);

    /// What is waited for, the named one or everything asked for so far. Throws a CommandFailure
    /// when there is none of that name.
    std::vector<std::shared_ptr<Call>> awaited(const std::optional<std::string>& name) const;

    struct Silence {
        /// The labels of those that are silent.
        std::vector<std::string> labels;
        /// Why one of them cannot be answered: its part of the runtime is missing.
        std::optional<std::string> reason;
    };
    Silence silent(const std::vector<std::shared_ptr<Call>>& calls,
                   const MissingParts& missing) const;

    /// Called, with no lock held, whenever something may have changed for who waits.
    void setChangeHandler(std::function<void()> handler);

  private:
    class Answer;
    void dropped(Call& call);
    void settle(Call& call);

    const Report report;
    const std::shared_ptr<Ending> ending;
    const std::shared_ptr<tessel::Activity> activity;
    std::atomic<bool> endReported = false;

    mutable platform::Mutex mutex;
    std::map<std::string, std::shared_ptr<Call>> named;
    std::vector<std::shared_ptr<Call>> ttls;
    std::map<char, std::size_t> counts;
    std::set<RuntimePart> ready;
    std::function<void()> changeHandler;
};

} // namespace zem::host
