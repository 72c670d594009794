#pragma once

// The means of the functions that carry out commands.

#include "Calls.h"
#include "CommandFailure.h"
#include "Globals/EvalResult.h"
#include "Process/Ending.h"
#include "Process/Failure.h"
#include "Report.h"
#include "Runtime/Network.h"
#include "Runtime/Runtime.h"
#include <zem/Adapters/EncryptedBinaryStore.h>
#include <zem/Core/DataServiceResult.h>
#include <zem/Platform/Mutex.h>
#include <zem/SqliteStore/SQLiteStore.h>
#include <zem/Tessel/Activity.h>

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zem::host {

/// The functions of the commands run one after the other on one thread, the commands' thread.
class CommandContext : public std::enable_shared_from_this<CommandContext> {
  public:
    struct Options {
        /// The source of the lines, as failures and the places of scripts name it; empty for a
        /// shell.
        std::string source;
        bool json = false;
        std::shared_ptr<Ending> ending;
        std::shared_ptr<tessel::Activity> activity;
        /// Evaluates the script of a line of the source and waits for its promise if it returns
        /// one. Calls back once, or never if the promise is not settled. Returns at once.
        std::function<void(std::string script, std::string source, int line,
                           std::function<void(EvalResult)>)>
            evaluate;
        /// Ends the running script, if there is one. Any thread.
        std::function<void()> interruptScript;
    };

    /// The parts of the run that commands use. The runtime must live until `finish`.
    struct Parts {
        Runtime* runtime = nullptr;
        std::weak_ptr<SQLiteStore> store;
        std::shared_ptr<EncryptedBinaryStore> binaryStore;
        std::shared_ptr<Network> network;
    };

    explicit CommandContext(Options given);

    // For the functions of the commands. All of them throw a CommandFailure when the command is
    // interrupted.

    /// Runs `question` with the services, and returns when it has run: commands reach the runtime
    /// in their order.
    void ask(std::function<void(RuntimeServices&)> question);

    /// Calls `begin` with a function that takes the answer, on any thread, and waits for the
    /// answer.
    template <class T>
    T await(const std::function<void(std::function<void(T)>)>& begin) {
        const auto answer = std::make_shared<std::optional<T>>();
        begin([weak = weak_from_this(), answer](T value) {
            if (const auto alive = weak.lock()) {
                alive->change([&] { *answer = std::move(value); });
            }
        });
        platform::UniqueLock lock(mutex);
        condition.wait(lock, [&] { return *answer || isInterrupted(); });
        if (!*answer) {
            throw CommandFailure(interrupted);
        }
        return **answer;
    }

    EvalResult evaluate(const std::string& script, std::size_t line);

    /// Waits for the named call, or for every call so far. Also throws a CommandFailure if one of
    /// them stays silent for so long, or can never be answered.
    void waitForCalls(const std::optional<std::string>& name, platform::Seconds limit);

    /// Ends the run.
    void end() { options.ending->request(exitDone); }

    /// The store of the run; null while the run ends.
    std::shared_ptr<SQLiteStore> store() const { return parts.store.lock(); }
    /// Closed while the run ends.
    EncryptedBinaryStore& binaryStore() const { return *parts.binaryStore; }
    Network& network() const { return *parts.network; }

    /// Prints the results of commands.
    const Report report;
    const std::shared_ptr<Calls> calls;

    /// The open subscriptions by name. The functions are set and called on the services' thread.
    std::map<std::string, std::shared_ptr<Unsubscribe>> subscriptions;

    /// The listener of `drafts watch on`. The function is set and called on the services' thread.
    struct DraftsWatch {
        std::shared_ptr<Call> call;
        std::shared_ptr<Unsubscribe> end;
    };
    std::optional<DraftsWatch> draftsWatch;

    // For Commands.

    /// The run does not end by itself from `start` to `finish`.
    void start(Parts used);
    /// On the commands' thread.
    void finish() { working.reset(); }

    /// A new line begins: an interruption from now on is for this line. Any thread.
    void beginLine();
    /// Interrupts the command that runs, for `abandon` also the script. `abandon` returns false if
    /// the command was interrupted before. Any thread.
    void stop();
    bool abandon();
    bool isStopped() const;

    /// Has waits look again. Any thread.
    void changed() {
        change([] {});
    }

  private:
    static constexpr const char* interrupted = "interrupted";

    template <class Change>
    void change(const Change& make) {
        const platform::Lock lock(mutex);
        make();
        condition.notify_all();
    }

    /// Under the lock.
    bool isInterrupted() const { return stopped || abandoned; }

    /// The reason why the wait failed; absent if everything has come.
    std::optional<std::string> waitFor(const std::vector<std::shared_ptr<Call>>& awaited,
                                       platform::Seconds limit);

    const Options options;
    Parts parts;
    /// Keeps the run from ending while there are commands.
    std::unique_ptr<tessel::ActivityToken> working;

    mutable platform::Mutex mutex;
    std::condition_variable_any condition;
    bool stopped = false;
    bool abandoned = false;
};

} // namespace zem::host
