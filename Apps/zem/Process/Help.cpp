#include "Help.h"

namespace zem::host {

namespace {

constexpr const char* programHelp = R"(zem runs JavaScript data runtimes on ZEM's encrypted store.

Usage:
  zem run BUNDLE.js [OPTIONS] [-- ARGS...]    run a bundle; see zem run --help
  zem shell BUNDLE.js [OPTIONS] [-- ARGS...]  run a bundle and what you type;
                                              see zem shell --help
  zem --help                                  print this text
  zem --version                               print zem's version, and those of its
                                              engine, SQLCipher and SQLite
)";

constexpr const char* runUsage = R"(Usage:
  zem run BUNDLE.js [--data DIR | --memory] [--keys DIR | --secret-service]
          [--url BASE] [--offline] [--timeout SECONDS]
          [--set NAME=TEXT] [--set NAME=@FILE.json] [--trace FILE] [--json]
          [--commands FILE] [-- ARGS...]

Runs BUNDLE.js as a classic script, with ZEM's plugins as global objects
(ZemSqliteStore, ZemNetworkAdapter, ZemBinaryStorePlugin, ZemDraftQueue), until
nothing is left to do: no timer, no pending callback, no request, no operation.

)";

constexpr const char* shellUsage = R"(Usage:
  zem shell BUNDLE.js [--data DIR | --memory] [--keys DIR | --secret-service]
            [--url BASE] [--offline] [--timeout SECONDS]
            [--set NAME=TEXT] [--set NAME=@FILE.json] [--trace FILE] [--json]
            [-- ARGS...]

Runs BUNDLE.js like zem run, and carries out commands as you type them. TAB
completes commands, options and the names of subscriptions; Ctrl-C gives up the
line, or the command that waits; Ctrl-D ends the shell. What was typed is kept
in $XDG_STATE_HOME/zem/history or ~/.local/state/zem/history. A failed command
or an uncaught exception is reported, and the shell goes on. Where standard
input is no terminal, its lines are carried out as they come, and the shell ends
like zem run after the last one.

)";

constexpr const char* optionsHelp = R"(Store:
  --data DIR             keep the store and the binaries in DIR (default:
                         ./zem-data)
  --memory               keep them in memory, under keys made for this run
  --keys DIR             keep their key and salt as files in DIR
  --secret-service       keep these in the Secret Service (the default)

Network:
  --url BASE             send requests that name no host to this http or https
                         URL; its path leads theirs. Without it, they fail
  --offline              start without a network: every request fails with
                         "offline" until the command network on
  --timeout SECONDS      the most time that a request may take (default: 600)

Bundle:
  --set NAME=TEXT        make TEXT a global; may be given more than once
  --set NAME=@FILE.json  make the parsed file a global
  -- ARGS...             what the bundle finds as host.args

Output:
  --json                 write every console line to standard output as one JSON
                         object: {"level":"log","message":"..."}, where level is
                         log, info, warn, error or debug
  --trace FILE           write the store's intervals and events to FILE, in the
                         Chrome trace format
)";

constexpr const char* commandsOption = R"(
Commands:
  --commands FILE        carry out the commands in FILE, one a line, or from
                         standard input where FILE is -. One that fails ends
                         the run with exit code 4 and its line, unless the line
                         begins with -. After the last one the run ends once
                         nothing is left to do and every invocation, upload and
                         command on drafts has been answered.

)";

constexpr const char* commandsHeading = R"(
Commands:
)";

constexpr const char* globalsHelp = R"(
Globals:
  console (warn and error go to standard error), setTimeout, clearTimeout,
  setInterval, clearInterval, queueMicrotask, performance.now, TextEncoder,
  TextDecoder, crypto.getRandomValues, crypto.randomUUID, structuredClone, atob,
  btoa, URL, URLSearchParams, DOMException, AbortController, AbortSignal, Event,
  CustomEvent, EventTarget, MessageChannel, MessagePort, MessageEvent, Headers,
  Request, Response, Blob, File, FormData, fetch (over ZemNetworkAdapter),
  host.args, host.exit(code)
)";

constexpr const char* exitCodesHelp = R"(
Exit codes:
  0    nothing was left to do
  1    an uncaught exception or an unhandled rejection
  2    wrong usage, or a file that cannot be read
  3    the store or the binaries cannot be opened
  4    a command has failed
  130  Ctrl-C; the databases were closed cleanly (a second Ctrl-C ends at once)
  host.exit(code) ends with its own code, from 0 to 255.
)";

} // namespace

std::string helpOf(const std::string& command, const std::string& commands) {
    if (command == "run") {
        return std::string(runUsage) + optionsHelp + commandsOption + commands + globalsHelp +
               exitCodesHelp;
    }
    if (command == "shell") {
        return std::string(shellUsage) + optionsHelp + commandsHeading + commands + globalsHelp;
    }
    return programHelp;
}

} // namespace zem::host
