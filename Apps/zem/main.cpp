// The headless host: runs a JavaScript data runtime without the application around it.

#include "Commands/CommandHelp.h"
#include "Process/Failure.h"
#include "Process/Interruption.h"
#include "Process/Options.h"
#include "Process/Output.h"
#include "Process/SignalHandler.h"
#include "Run.h"

#include <fmt/format.h>

#include <csignal>
#include <exception>
#include <memory>

using namespace zem::host;

int main(int count, char** words) {
    try {
        const auto options = parseOptions(count, words, helpOfCommands());
        if (!options) {
            return exitDone;
        }
        const auto ending = std::make_shared<Ending>(zem::platform::RunLoop::main());
        const auto interruption = std::make_shared<Interruption>();
        const SignalHandler signalHandler([ending, interruption](int signal) {
            if (signal == SIGINT && interruption->isTaken()) {
                return false;
            }
            ending->request(exitInterrupted);
            return true;
        });
        return Run(*options, ending, interruption).run();
    } catch (const Failure& failure) {
        printErrorLine(fmt::format("zem: {}", failure.what()));
        return failure.code();
    } catch (const std::exception& error) {
        printErrorLine(fmt::format("zem: {}", error.what()));
        return exitUncaught;
    }
}
