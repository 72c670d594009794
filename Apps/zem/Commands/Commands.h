#pragma once

// Carries out commands, one after the other, on a thread of its own.

#include "CommandContext.h"
#include "CommandParser.h"
#include "LineSource.h"

#include <cstddef>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace zem::host {

class Commands {
  public:
    struct Options {
        CommandContext::Options context;
        /// The end of the lines is the end of the run, even if calls are still open.
        bool endsWithLines = false;
        /// A failed command ends the run, unless its line says otherwise.
        bool endsWithFailure = true;
    };

    explicit Commands(Options given);
    ~Commands();
    Commands(const Commands&) = delete;
    Commands& operator=(const Commands&) = delete;

    /// Takes the runtime's reports.
    Runtime::Listener listener();

    /// Starts with the first line. The runtime must live until `stop` has succeeded. Once.
    void start(std::unique_ptr<LineSource> fromLines, CommandContext::Parts parts);

    /// Ends the commands, and returns whether the thread has ended within the time.
    bool stop(platform::Seconds limit);

    /// The run has nothing left to do, except what the commands wait for. Any thread.
    void idle();

    /// Ctrl-C at the terminal: gives up the typed line, or the command that runs. False if that
    /// command was given up before. Any thread.
    bool abandon();

    std::vector<std::string> subscriptionNames() const {
        return context->calls->subscriptionNames();
    }

  private:
    void run();
    void perform(const CommandText& text, std::size_t line);

    const std::shared_ptr<Ending> ending;
    const bool endsWithLines;
    const bool endsWithFailure;
    const std::shared_ptr<CommandContext> context;
    Runtime* runtime = nullptr;

    mutable platform::Mutex mutex;
    std::unique_ptr<LineSource> lines; ///< set once
    bool isFinished = false;

    std::promise<void> ended;
    std::thread thread;
};

} // namespace zem::host
