#pragma once

// What the commands have asked of the data service, and what came of it.

#include "Ending.h"
#include "Report.h"
#include <zem/Core/DataServiceResult.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/RunLoop.h>
#include <zem/Tessel/Activity.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace zem::host {

class Call;

/// Prints what arrives; answers what is still awaited. Thread-safe.
class Calls {
  public:
    enum class Kind { invocation, subscription, ttl };

    Calls(Report report, std::shared_ptr<Ending> ending,
          std::shared_ptr<tessel::Activity> activity);

    /// The origin's name is the call's; where it has none it gets one: i1, i2 ... for invocations,
    /// s1, s2 ... for subscriptions. Throws a CommandFailure when the name is taken. A TTL replaces
    /// the one before that was not heard of.
    std::shared_ptr<Call> add(Kind kind, CommandOrigin origin, const std::string& adapterId);

    static const std::string& nameOf(const Call& call);

    /// Takes a subscription out. Throws a CommandFailure when there is none of that name.
    std::shared_ptr<Call> removeSubscription(const std::string& name);

    std::vector<std::string> subscriptionNames() const;

    /// A result is there. What comes for a subscription that was taken out is dropped.
    void arrived(Call& call, const DataServiceResult& result);
    void ttlSet(Call& call, std::int64_t ttl);

    /// There is a runtime: from now on the run does not end before the invocations are answered.
    void runtimeReady();
    /// There is none: what was recorded has failed, once.
    void runtimeFailed(const std::string& why);

    /// Something was asked for that needs a runtime, and nothing has come.
    bool anyPending() const;

    /// A failed command: prints the text, and ends the run where the command must not fail.
    void failed(const CommandOrigin& origin, const std::string& label, const std::string& error);

    /// What is waited for, the named one or everything asked for so far. Throws a CommandFailure
    /// when there is none of that name.
    std::vector<std::shared_ptr<Call>> awaited(const std::optional<std::string>& name) const;
    /// Those that are silent.
    std::vector<std::string> silent(const std::vector<std::shared_ptr<Call>>& calls) const;

    /// Called, with no lock held, whenever something may have changed for who waits.
    void setChangeHandler(std::function<void()> handler);

  private:
    void settle(Call& call);

    const Report report;
    const std::shared_ptr<Ending> ending;
    const std::shared_ptr<tessel::Activity> activity;
    std::atomic<bool> endReported = false;

    mutable platform::Mutex mutex;
    std::map<std::string, std::shared_ptr<Call>> named;
    std::vector<std::shared_ptr<Call>> ttls;
    std::size_t invocations = 0;
    std::size_t subscriptions = 0;
    bool isReady = false;
    std::function<void()> changeHandler;
};

} // namespace zem::host
