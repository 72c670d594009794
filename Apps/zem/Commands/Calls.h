#pragma once

// The calls that commands have made to the runtime, and their results.

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

/// The result of a call, or the text of its failure.
using CallResult = std::expected<Shown, std::string>;

/// Takes the result of a call, on any thread. The call fails when the last copy is destroyed
/// without having been called.
using CallAnswer = std::function<void(const CallResult&)>;

/// Prints the results, and knows which calls have none yet. Thread-safe.
class Calls : public std::enable_shared_from_this<Calls> {
  public:
    enum class Kind {
        invocation,
        subscription,
        ttl,
        /// An operation on drafts that has an answer.
        drafts,
        /// An operation on drafts without an answer. It is done when the runtime was called.
        draftsOrder
    };

    Calls(Report report, std::shared_ptr<Ending> ending,
          std::shared_ptr<tessel::Activity> activity);

    /// The call has the origin's name. Without one it gets the next of i1, i2 ... for invocations,
    /// s1, s2 ... for subscriptions, d1, d2 ... for drafts. Throws a CommandFailure if the name is
    /// taken. `what` follows the name in the output for people. A TTL replaces an earlier one of
    /// the same name.
    std::shared_ptr<Call> add(Kind kind, RuntimePart part, CommandOrigin origin,
                              const std::string& what);

    static const std::string& nameOf(const Call& call);

    /// Removes a subscription. Throws a CommandFailure if there is none of that name.
    void removeSubscription(const std::string& name);

    /// Removes a call. Its later results are dropped.
    void remove(Call& call);

    std::vector<std::string> subscriptionNames() const;

    /// Prints a result.
    void arrived(Call& call, const CallResult& result);

    /// Prints the only result of a call.
    CallAnswer answer(std::shared_ptr<Call> call);

    /// Tells which parts of the runtime are missing. Every open call of a missing part fails, once.
    /// The run does not end before the other calls have their answers.
    void runtimeIsMissing(const MissingParts& missing);

    /// Prints the failure of a command, and ends the run if the command must not fail.
    void failed(const CommandOrigin& origin, const std::string& label, const std::string& error);

    /// The calls to wait for: the named one, or all so far. Throws a CommandFailure if there is
    /// none of that name.
    std::vector<std::shared_ptr<Call>> awaited(const std::optional<std::string>& name) const;

    struct Silence {
        /// The labels of the calls without a result.
        std::vector<std::string> labels;
        /// The reason why one of them gets no answer: its part of the runtime is missing.
        std::optional<std::string> reason;
    };
    Silence silent(const std::vector<std::shared_ptr<Call>>& calls,
                   const MissingParts& missing) const;

    /// Called, with no lock held, whenever a wait for calls may be over. Any thread.
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
