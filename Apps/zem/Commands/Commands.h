#pragma once

// Carries out commands, one after the other, on a thread of its own.

#include "Calls.h"
#include "CommandParser.h"
#include "Drafts.h"
#include "Globals/EvalResult.h"
#include "LineSource.h"
#include "Process/Ending.h"
#include "Report.h"
#include "Runtime/Runtime.h"
#include <zem/Platform/Mutex.h>
#include <zem/SqliteStore/SQLiteStore.h>
#include <zem/Tessel/Activity.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace zem::host {

class Commands : public std::enable_shared_from_this<Commands> {
  public:
    struct Options {
        /// Where the lines come from, as scripts' places and failures name it.
        std::string source;
        bool json = false;
        /// The end of the lines is the end of the run, whatever is still open.
        bool endsWithLines = false;
        /// The run ends where a command fails, unless its line says otherwise.
        bool endsWithFailure = true;
        std::shared_ptr<Ending> ending;
        std::shared_ptr<tessel::Activity> activity;
        /// Evaluates a script that stands at a line of a source, waits for its promise where it is
        /// one, and tells what it came to. Returns at once.
        std::function<void(std::string script, std::string source, int line,
                           std::function<void(EvalResult)>)>
            evaluate;
        /// Ends the script that is running just then, if one is. Any thread.
        std::function<void()> interruptScript;
    };

    static std::shared_ptr<Commands> create(Options options);
    ~Commands();
    Commands(const Commands&) = delete;
    Commands& operator=(const Commands&) = delete;

    /// What the runtime has to tell.
    Runtime::Listener listener();

    /// Starts with the first line. The runtime is there until `stop` has succeeded. Once.
    void start(std::unique_ptr<LineSource> lines, Runtime& runtime,
               std::weak_ptr<SQLiteStore> store);

    /// Ends what goes on, and returns whether the thread has ended within the time.
    bool stop(platform::Seconds limit);

    /// Nothing is left to do but what the commands themselves are waiting for. Any thread.
    void idle();

    /// Somebody at the terminal interrupts: gives up the line that is being typed, or the command
    /// at hand. False when that was given up before and is still there. Any thread.
    bool abandon();

    std::vector<std::string> subscriptionNames() const { return calls->subscriptionNames(); }

  private:
    explicit Commands(Options given);

    void run();
    void perform(const CommandText& text, std::size_t line);
    void perform(const SubscribeCommand& command, CommandOrigin origin);
    void perform(const UnsubscribeCommand& command, const CommandOrigin& origin);
    void perform(const InvokeCommand& command, CommandOrigin origin);
    void perform(const TTLCommand& command, CommandOrigin origin);
    void perform(const DraftsCommand& command, const CommandOrigin& origin);
    void perform(const WaitCommand& command, const CommandOrigin& origin);
    void perform(const SQLCommand& command, const CommandOrigin& origin);
    void perform(const EvalCommand& command, const CommandOrigin& origin);
    void perform(const QuitCommand& command, const CommandOrigin& origin);

    void ask(std::function<void(RuntimeServices&)> question);

    /// What comes back from another thread.
    template <class T>
    using Answer = std::shared_ptr<std::optional<T>>;
    template <class T>
    static void answer(const std::weak_ptr<Commands>& commands, const Answer<T>& to, T value);
    template <class T>
    T waitFor(const Answer<T>& answer);
    /// Why the wait is over before everything has come; absent when it has.
    std::optional<std::string> waitForCalls(const std::vector<std::shared_ptr<Call>>& awaited,
                                            platform::Seconds limit);
    void changed();

    Options options;
    const Report report;
    const std::shared_ptr<Calls> calls;
    std::unique_ptr<LineSource> lines; ///< the same from the start on
    Runtime* runtime = nullptr;
    std::weak_ptr<SQLiteStore> store;

    mutable platform::Mutex mutex;
    std::condition_variable_any condition;
    bool isStopped = false;
    bool isFinished = false;
    bool isAbandoned = false;

    // The thread's own.
    /// What keeps the run from ending while there are commands.
    std::unique_ptr<tessel::ActivityToken> working;
    /// Filled and used on the services' thread.
    std::map<std::string, std::shared_ptr<Unsubscribe>> unsubscribes;
    Drafts drafts;

    std::promise<void> ended;
    std::thread thread;
};

} // namespace zem::host
