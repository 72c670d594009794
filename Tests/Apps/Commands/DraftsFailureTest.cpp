// The failures of the commands on drafts, and their texts.

#include <gmock/gmock.h>

#include <Apps/Host.h>
#include <Apps/Runtimes.h>

namespace {

using test::dataService;
using test::drafts;
using test::Host;

const std::string set = "globalThis.runtime = { draftManager, draftQueue }";

/// Expects `command` to fail with `text`, whether the runtime is set before it or after.
void expectFailure(const std::string& change, const std::string& command, const std::string& label,
                   const std::string& text) {
    const Host host;
    const std::string line = label + ": failed: " + text + "\n";
    for (const auto& [script, commands] :
         {std::pair(drafts + change + ";" + set, "\n" + command + "\nwait\n"),
          std::pair(drafts + change, "\n" + command + "\neval void (" + set + ")\nwait\n")}) {
        const auto stopped = host.runCommands(script, commands + "eval tell('never')\n");
        EXPECT_THAT(stopped.output, testing::HasSubstr(line)) << commands;
        EXPECT_THAT(stopped.output, testing::Not(testing::HasSubstr("[\"never\"]"))) << commands;
        EXPECT_EQ(stopped.errors, "zem: commands.txt:2: " + label + ": " + text + "\n");
        EXPECT_EQ(stopped.code, 4) << commands;
    }
    const auto tolerated = host.runCommands(drafts + change + ";" + set,
                                            "-" + command + "\nwait\neval tell('next')\n");
    EXPECT_THAT(tolerated.output, testing::HasSubstr(line));
    EXPECT_THAT(tolerated.output, testing::EndsWith("[\"next\"]\neval: undefined\n"));
    EXPECT_EQ(tolerated.errors, "");
    EXPECT_EQ(tolerated.code, 0);
}

TEST(DraftsFailure, ARejectionIsToldInTheRuntimesWords) {
    struct Case {
        const char* function;
        const char* command;
        const char* label;
    };
    for (const auto& [function, command, label] :
         {Case{"getQueue", "drafts list", "d1 list"}, Case{"getQueue", "drafts show a", "d1 show"},
          Case{"removeDraftAction", "drafts remove a", "d1 remove"},
          Case{"replaceAction", "drafts replace a b", "d1 replace"},
          Case{"mergeActions", "drafts merge a into b", "d1 merge"},
          Case{"setMetadata", "drafts metadata a k=v", "d1 metadata"},
          Case{"addCustomAction", "drafts add a k=v", "d1 add"},
          Case{"setCustomActionExecutor", "drafts executor SUCCESS", "d1 executor"}}) {
        expectFailure(std::string("draftManager.") + function + " = async () => { throw 'up' }",
                      command, label, "up");
    }
    expectFailure("draftQueue.processNextAction = () => Promise.reject({ error: 'up' })",
                  "drafts process", "d1 process", "up");
}

TEST(DraftsFailure, ARejectionWithoutWordsHasThoseOfItsKind) {
    const auto reject = [](const std::string& function, const std::string& reason) {
        return function + " = () => Promise.reject(" + reason + ")";
    };
    expectFailure(reject("draftManager.getQueue", ""), "drafts list", "d1 list",
                  "An unspecified error occured");
    expectFailure(reject("draftManager.addCustomAction", "Object.create(null)"), "drafts add a k=v",
                  "d1 add", "uknown error adding custom action");
    expectFailure(reject("draftManager.setCustomActionExecutor", "Object.create(null)"),
                  "drafts executor SUCCESS", "d1 executor", "uknown error when setting executor");
    expectFailure(reject("draftQueue.processNextAction", "'no object'"), "drafts process",
                  "d1 process", "Promise Rejected but no error found.");
}

TEST(DraftsFailure, WhatCannotBeReadIsNamedAndNotShown) {
    const auto fulfil = [](const std::string& function, const std::string& value) {
        return function + " = async () => (" + value + ")";
    };
    expectFailure(fulfil("draftManager.getQueue",
                         "{ queueState, items: [item, { ...failed, state: 'private' }] }"),
                  "drafts list", "d1 list",
                  "the runtime's draft queue: items[1].state: expected one of \"pending\", "
                  "\"uploading\", \"error\", \"completed\", found another string");
    expectFailure(fulfil("draftManager.getQueue", "7"), "drafts show a", "d1 show",
                  "the runtime's draft queue: expected an object, found a number");
    expectFailure(fulfil("draftManager.removeDraftAction", "{ queueState }"), "drafts remove a",
                  "d1 remove",
                  "the runtime's draft queue: items: expected an array, found undefined");
    const std::string noItem = "{ ...item, timestamp: 'private' }";
    const std::string why = "the runtime's draft: timestamp: expected an integer, found a string";
    expectFailure(fulfil("draftManager.replaceAction", noItem), "drafts replace a b", "d1 replace",
                  why);
    expectFailure(fulfil("draftManager.mergeActions", noItem), "drafts merge a into b", "d1 merge",
                  why);
    expectFailure(fulfil("draftManager.setMetadata", noItem), "drafts metadata a k=v",
                  "d1 metadata", why);
    expectFailure(fulfil("draftManager.addCustomAction", noItem), "drafts add a k=v", "d1 add",
                  "Unable to decode added item");
    expectFailure(fulfil("draftQueue.processNextAction", "'private'"), "drafts process",
                  "d1 process",
                  "what became of the next draft: expected one of \"ERROR\", \"SUCCESS\", "
                  "\"NO_ACTION_TO_PROCESS\", \"ACTION_ALREADY_PROCESSING\", \"NETWORK_ERROR\", "
                  "\"BLOCKED_ON_ERROR\", found another string");
}

TEST(DraftsFailure, WhatIsNoPromiseIsSaidToBeNone) {
    expectFailure("draftManager.addCustomAction = () => 7", "drafts add a k=v", "d1 add",
                  "addCustomAction did not return a promise");
    expectFailure("draftManager.setCustomActionExecutor = () => {}", "drafts executor SUCCESS",
                  "d1 executor", "addExternalAction did not return a promise");
}

TEST(DraftsFailure, AnUnknownDraftIsNotShown) {
    expectFailure("", "drafts show 'c d'", "d1 show", "there is no draft \"c d\"");
}

TEST(DraftsFailure, OneThatIsReplacedBeforeTheRuntimeIsThereHasFailed) {
    struct Case {
        const char* command;
        const char* label;
    };
    for (const auto& [command, label] :
         {Case{"drafts remove a", "remove"}, Case{"drafts metadata a k=v", "metadata"},
          Case{"drafts executor SUCCESS", "executor"}}) {
        const Host host;
        const auto result = host.runCommands(drafts, std::string("-") + command + "\n" + command +
                                                         "\neval void (" + set + ")\nwait\n");
        EXPECT_THAT(result.output,
                    testing::StartsWith(std::string("d1 ") + label +
                                        ": failed: dropped unanswered, by the runtime or for a "
                                        "later command like it\n"));
        EXPECT_THAT(result.output, testing::HasSubstr(std::string("\nd2 ") + label + ": "));
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.code, 0);
    }
}

/// Calls without a promise.
const std::string silent = drafts +
                           "draftManager.getQueue = () => {};"
                           "draftQueue.processNextAction = () => {};" +
                           set;

TEST(DraftsFailure, ARuntimeThatPromisesNothingEndsARun) {
    const Host host;
    const auto list = host.runCommands(silent, "drafts list\nwait --for 100000\n");
    EXPECT_EQ(list.output, "");
    EXPECT_EQ(list.errors, "Uncaught TypeError: getQueue: expected a promise, found undefined\n");
    EXPECT_EQ(list.code, 1);
    const auto process = host.runCommands(silent, "drafts process\nwait --for 100000\n");
    EXPECT_EQ(process.errors,
              "Uncaught TypeError: processNextAction: expected a promise, found undefined\n");
    EXPECT_EQ(process.code, 1);
    const auto missing = host.runCommands(drafts + "delete draftManager.startQueue;" + set,
                                          "drafts start\nwait --for 100000\n");
    EXPECT_EQ(missing.errors,
              "Uncaught TypeError: startQueue: expected a function, found undefined\n");
    EXPECT_EQ(missing.code, 1);
}

TEST(DraftsFailure, ARuntimeThatPromisesNothingEndsNoShell) {
    const Host host;
    host.write("bundle.js", silent);
    auto process = host.startWithInput({"shell", "bundle.js", "--memory"});
    process.write("drafts list\nwait\ndrafts process\nwait\neval 1 + 1\n");
    process.closeInput();
    const auto result = process.wait();
    const std::string why = ": failed: dropped unanswered, by the runtime or for a later command "
                            "like it\n";
    EXPECT_EQ(result.output, "d1 list" + why + "d2 process" + why + "eval: 2\n");
    EXPECT_EQ(result.errors,
              "Uncaught TypeError: getQueue: expected a promise, found undefined\n"
              "Uncaught TypeError: processNextAction: expected a promise, found undefined\n");
    EXPECT_EQ(result.code, 0);
}

constexpr const char* noService =
    "globalThis.runtime.dataService: expected an object, found undefined";
constexpr const char* noManager =
    "globalThis.runtime.draftManager: expected an object, found undefined";
constexpr const char* noQueue =
    "globalThis.runtime.draftQueue: expected an object, found undefined";

/// The commands that ask the draft manager, and what they say where there is none.
constexpr const char* managerCommands = "-drafts list\n-drafts show a\n-drafts remove a\n"
                                        "-drafts replace a b\n-drafts merge a into b\n"
                                        "-drafts metadata a k=v\n-drafts start\n-drafts stop\n"
                                        "-drafts add a k=v\n-drafts executor SUCCESS\n"
                                        "-drafts watch on\n";
std::string managerFailures(const std::string& why) {
    std::string text;
    int number = 0;
    for (const char* word : {"list", "show", "remove", "replace", "merge", "metadata", "start",
                             "stop", "add", "executor", "watch"}) {
        text += "d" + std::to_string(++number) + " " + word + ": failed: " + why + "\n";
    }
    return text;
}

/// The same whether the commands are recorded before the runtime is set or not, each told once.
void expectOutput(const std::string& runtime, const std::string& commands,
                  const std::string& output) {
    const Host host;
    const std::string parts = dataService + drafts;
    const std::string assignment = "globalThis.runtime = " + runtime;
    const auto ready = host.runCommands(parts + assignment, commands);
    EXPECT_EQ(ready.output, output) << runtime;
    EXPECT_EQ(ready.errors, "") << runtime;
    EXPECT_EQ(ready.code, 0) << runtime;
    const std::string evaluated = "eval: undefined\n";
    auto recorded = host.runCommands(parts, commands + "eval void (" + assignment + ")\nwait\n");
    const std::size_t at = recorded.output.find(evaluated);
    ASSERT_NE(at, std::string::npos) << recorded.output;
    EXPECT_EQ(recorded.output.erase(at, evaluated.size()), output) << runtime;
    EXPECT_EQ(recorded.errors, "") << runtime;
    EXPECT_EQ(recorded.code, 0) << runtime;
}

std::string failure(const std::string& label, const std::string& why) {
    return label + ": failed: " + why + "\n";
}

TEST(DraftsFailure, ARuntimeWithoutDraftsGoesOnServingData) {
    expectOutput("{ dataService }", std::string(managerCommands) + "-drafts process\n",
                 managerFailures(noManager) + failure("d12 process", noQueue));
    expectOutput("{ dataService }", "invoke a {}\n",
                 "[\"invokeAdapter\",\"a\",\"{}\",\"no context\"]\ni1 a: {\"id\":\"a\"}\n");
}

TEST(DraftsFailure, ARuntimeWithOnlyADraftManagerServesThat) {
    expectOutput("{ draftManager }",
                 "-drafts process\n-invoke a {}\n-subscribe b {}\n-ttl record 1\n",
                 failure("d1 process", noQueue) + failure("i1 a", noService) +
                     failure("s1 b", noService) + failure("ttl record", noService));
    expectOutput("{ draftManager }", "drafts replace a b\n",
                 "[\"replaceAction\",\"a\",\"b\"]\n"
                 "d1 replace: {\"id\":\"a\",\"targetId\":\"001\",\"state\":\"pending\","
                 "\"operationType\":\"create\",\"timestamp\":-1,"
                 "\"metadata\":{\"ZEM_ACTION_METADATA_API_NAME\":\"Account\"}}\n");
}

TEST(DraftsFailure, ARuntimeWithOnlyADraftQueueServesThat) {
    expectOutput("{ draftQueue }", std::string(managerCommands) + "-invoke a {}\n",
                 managerFailures(noManager) + failure("i1 a", noService));
    expectOutput("{ draftQueue }", "drafts process\n",
                 "[\"processNextAction\"]\nd1 process: NO_ACTION_TO_PROCESS\n");
}

TEST(DraftsFailure, APartThatIsNoneIsNamed) {
    expectOutput("{ dataService, draftManager: null, draftQueue: 'private' }",
                 "-drafts list\n-drafts process\n",
                 failure("d1 list", "globalThis.runtime.draftManager: expected an object, "
                                    "found null") +
                     failure("d2 process", "globalThis.runtime.draftQueue: expected an object, "
                                           "found a string"));
    expectOutput("{ dataService, get draftManager() { throw 'up' } }", "-drafts list\n",
                 failure("d1 list", "reading globalThis.runtime.draftManager threw: 'up'"));
}

TEST(DraftsFailure, ARuntimeThatCannotBeUsedFailsDraftsToo) {
    const std::string noObject = "globalThis.runtime: expected an object, found a number";
    expectOutput("7", std::string(managerCommands) + "-drafts process\n",
                 managerFailures(noObject) + failure("d12 process", noObject));
    const std::string rejected = "the promise in globalThis.runtime was rejected: 'no'";
    expectOutput("Promise.reject('no')", std::string(managerCommands) + "-drafts process\n",
                 managerFailures(rejected) + failure("d12 process", rejected));
}

TEST(DraftsFailure, WithoutARuntimeTheyFailWhenNothingIsLeftToDo) {
    const std::string unset = "the bundle has set no globalThis.runtime";
    const Host host;
    const auto atEnd = host.runCommands("", std::string(managerCommands) + "-drafts process\n");
    EXPECT_EQ(atEnd.output, managerFailures(unset) + failure("d12 process", unset));
    EXPECT_EQ(atEnd.errors, "");
    EXPECT_EQ(atEnd.code, 0);
    const auto waiting = host.runCommands("", "drafts list\ndrafts start\nwait\n");
    EXPECT_EQ(waiting.output, "");
    EXPECT_EQ(waiting.errors,
              "zem: commands.txt:3: waited in vain for d1 list, d2 start: " + unset + "\n");
    EXPECT_EQ(waiting.code, 4);
}

TEST(DraftsFailure, ALaterRuntimeIsAskedOnlyForWhatComesLater) {
    const Host host;
    const auto result = host.runCommands(drafts + "globalThis.runtime = {};",
                                         "-drafts remove a\n-drafts watch on\n-drafts process\n"
                                         "eval void (" +
                                             set + ")\n-drafts remove b\nwait\n");
    EXPECT_EQ(result.output, failure("d1 remove", noManager) + failure("d2 watch", noManager) +
                                 failure("d3 process", noQueue) +
                                 "eval: undefined\n[\"removeDraftAction\",\"b\"]\n"
                                 "d4 remove: queue stopped, 1 item\n"
                                 "  ID  STATE  OPERATION  TARGET  TYPE  AGE  ERROR  MESSAGE\n"
                                 "  b   error  update     -       -     -2   400    Bad Request\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

/// The line is no command.
void expectWrong(const std::string& line, const std::string& text) {
    const Host host;
    const auto result = host.runCommands("", line + "\n");
    EXPECT_EQ(result.output, "") << line;
    EXPECT_EQ(result.errors, "zem: commands.txt:1: " + text + "\n") << line;
    EXPECT_EQ(result.code, 4) << line;
}

TEST(DraftsFailure, SaysWhatIsWrongWithALine) {
    const std::string commands = "expected: drafts list|show|remove|replace|merge|metadata|start|"
                                 "stop|process|add|executor|watch";
    expectWrong("drafts", commands);
    expectWrong("drafts nonsense", commands);
    expectWrong("drafts List", commands);
    for (const char* word : {"list", "start", "stop", "process"}) {
        expectWrong(std::string("drafts ") + word + " x", std::string("expected: drafts ") + word);
    }
    for (const char* word : {"show", "remove"}) {
        const std::string usage = std::string("expected: drafts ") + word + " ID";
        expectWrong(std::string("drafts ") + word, usage);
        expectWrong(std::string("drafts ") + word + " a b", usage);
    }
    for (const char* rest : {"", " a", " a b c"}) {
        expectWrong(std::string("drafts replace") + rest, "expected: drafts replace ID WITH");
    }
    for (const char* rest : {"", " a", " a into", " a to b", " a b into", " a into b c"}) {
        expectWrong(std::string("drafts merge") + rest,
                    "expected: drafts merge SOURCE into TARGET");
    }
    for (const char* rest : {"", " a"}) {
        expectWrong(std::string("drafts metadata") + rest, "expected: drafts metadata ID K=V...");
        expectWrong(std::string("drafts add") + rest, "expected: drafts add TARGET K=V...");
    }
    expectWrong("drafts metadata a k=v x", "drafts metadata x: expected KEY=VALUE");
    expectWrong("drafts add a x", "drafts add x: expected KEY=VALUE");
    for (const char* rest : {"", " success", " FAILURE", " SUCCESS SUCCESS"}) {
        expectWrong(std::string("drafts executor") + rest,
                    "expected: drafts executor SUCCESS|NETWORK_ERROR|CLIENT_ERROR");
    }
    for (const char* rest : {"", " ON", " on off"}) {
        expectWrong(std::string("drafts watch") + rest, "expected: drafts watch on|off");
    }
}

TEST(DraftsFailure, AWatchIsTurnedOnAndOffByTurns) {
    const Host host;
    const auto result =
        host.runCommands(drafts + set, "-drafts watch off\n-drafts watch on\n-drafts watch on\n"
                                       "-drafts watch off\n-drafts watch off\n");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, "zem: commands.txt:1: the drafts are not watched\n"
                             "zem: commands.txt:3: the drafts are watched already\n"
                             "zem: commands.txt:5: the drafts are not watched\n");
    EXPECT_EQ(result.code, 0);
}

} // namespace
