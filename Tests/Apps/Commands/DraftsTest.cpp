// The effect and the output of the commands on drafts, before the runtime is set and after.

#include <gmock/gmock.h>

#include <Apps/Host.h>
#include <Apps/Runtimes.h>
#include <csignal>

namespace {

using test::drafts;
using test::Host;
using test::Process;

const std::string set = "globalThis.runtime = { draftManager, draftQueue }";

/// `text` without the line that begins with `start`.
std::string without(std::string text, const std::string& start) {
    const std::size_t at = text.rfind(start);
    EXPECT_NE(at, std::string::npos) << text;
    if (at != std::string::npos) {
        text.erase(at, text.find('\n', at) + 1 - at);
    }
    return text;
}

/// The runtime is there when the first command is read.
Process::Result runReady(const Host& host, const std::string& script, const std::string& commands,
                         bool json = false) {
    host.write("bundle.js", script + set + ";setTimeout(() => console.log('ready'));");
    Host::Words words{"run", "bundle.js", "--memory", "--commands", "-"};
    if (json) {
        words.push_back("--json");
    }
    auto process = host.startWithInput(words);
    process.waitForLine(json ? R"({"level":"log","message":"ready"})" : "ready");
    process.write(commands);
    process.closeInput();
    auto result = process.wait();
    result.output = without(result.output, json ? R"({"level":"log","message":"ready"})" : "ready");
    return result;
}

/// The runtime is set by a command after these, which all are recorded.
Process::Result runRecorded(const Host& host, const std::string& script,
                            const std::string& commands, bool json = false) {
    const Host::Words words = json ? Host::Words{"--json"} : Host::Words{};
    auto result = host.runCommands(script, commands + "eval void (" + set + ")\nwait\n", words);
    result.output = without(result.output, json ? R"({"command":"eval")" : "eval: undefined");
    return result;
}

void expectEither(const std::string& commands, const std::string& output, bool json) {
    const Host host;
    const auto ready = runReady(host, drafts, commands, json);
    EXPECT_EQ(ready.output, output) << commands;
    EXPECT_EQ(ready.errors, "") << commands;
    EXPECT_EQ(ready.code, 0) << commands;
    const auto recorded = runRecorded(host, drafts, commands, json);
    EXPECT_EQ(recorded.output, output) << commands;
    EXPECT_EQ(recorded.errors, "") << commands;
    EXPECT_EQ(recorded.code, 0) << commands;
}

/// Expects the command's output for people; the runtime prints each call that it gets.
void expectText(const std::string& command, const std::string& output) {
    expectEither(command + "\n", output, false);
}

/// The line of JSON that a command's result is.
void expectJSON(const std::string& command, const std::string& asked, const std::string& data) {
    const std::string told = asked.empty() ? "" : R"({"level":"log","message":")" + asked + "\"}\n";
    expectEither("\n" + command + "\n",
                 told + R"({"command":"drafts","name":"d1","line":2,"data":)" + data +
                     ",\"error\":null}\n",
                 true);
}

const std::string itemJSON =
    R"({"id":"a","targetId":"001","state":"pending","operationType":"create","timestamp":-1,)"
    R"("metadata":{"ZEM_ACTION_METADATA_API_NAME":"Account"}})";
const std::string failedJSON =
    R"({"id":"b","state":"error","operationType":"update","timestamp":-2,)"
    R"("error":{"status":400,"headers":{},"ok":false,"statusText":"Bad Request"}})";

TEST(Drafts, ListPrintsATable) {
    expectText("drafts list",
               "d1 list: queue stopped, 2 items\n"
               "  ID  STATE    OPERATION  TARGET  TYPE     AGE  ERROR  MESSAGE\n"
               "  a   pending  create     001     Account  -1   -      -\n"
               "  b   error    update     -       -        -2   400    Bad Request\n");
    expectJSON("drafts list", "",
               R"({"queueState":"stopped","items":[)" + itemJSON + "," + failedJSON + "]}");
}

TEST(Drafts, ListCountsAgesFromNow) {
    const Host host;
    const auto result = host.runCommands(drafts + R"(
            const minute = 60000;
            const now = Date.now();
            const of = (id, timestamp) => ({ ...item, id, timestamp });
            draftManager.getQueue = async () => ({ queueState: 'waiting', items: [
                of('minutes', now - 3.5 * minute), of('hours', now - 2.5 * 60 * minute),
                of('days', now - 4.5 * 24 * 60 * minute), of('future', 99999999999999) ] });
            globalThis.runtime = { draftManager };)",
                                         "drafts list\n");
    EXPECT_EQ(result.output, "d1 list: queue waiting, 4 items\n"
                             "  ID       STATE    OPERATION  TARGET  TYPE     AGE             "
                             "ERROR  MESSAGE\n"
                             "  minutes  pending  create     001     Account  3 min           "
                             "-      -\n"
                             "  hours    pending  create     001     Account  2 h             "
                             "-      -\n"
                             "  days     pending  create     001     Account  4 d             "
                             "-      -\n"
                             "  future   pending  create     001     Account  99999999999999  "
                             "-      -\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Drafts, ShowPrintsOneItemWhole) {
    expectText("drafts show b", "d1 show: " + failedJSON + "\n");
    expectJSON("drafts show b", "", failedJSON);
}

TEST(Drafts, RemovePrintsWhatIsLeft) {
    expectText("drafts remove a",
               "[\"removeDraftAction\",\"a\"]\n"
               "d1 remove: queue stopped, 1 item\n"
               "  ID  STATE  OPERATION  TARGET  TYPE  AGE  ERROR  MESSAGE\n"
               "  b   error  update     -       -     -2   400    Bad Request\n");
    expectJSON("drafts remove a", R"([\"removeDraftAction\",\"a\"])",
               R"({"queueState":"stopped","items":[)" + failedJSON + "]}");
}

TEST(Drafts, ReplacePrintsTheItem) {
    expectText("drafts replace a 'b c'", "[\"replaceAction\",\"a\",\"b c\"]\n"
                                         "d1 replace: " +
                                             itemJSON + "\n");
    expectJSON("drafts replace a b", R"([\"replaceAction\",\"a\",\"b\"])", itemJSON);
}

TEST(Drafts, MergeNamesTheSourceFirstAndTheRuntimeHearsTheTargetFirst) {
    expectText("drafts merge s into t", "[\"mergeActions\",\"t\",\"s\"]\n"
                                        "d1 merge: " +
                                            itemJSON + "\n");
    expectJSON("drafts merge s into t", R"([\"mergeActions\",\"t\",\"s\"])", itemJSON);
}

TEST(Drafts, MetadataCarriesPairs) {
    expectText("drafts metadata a k=v 'other key==x' k=w",
               "[\"setMetadata\",\"a\",{\"k\":\"w\",\"other key\":\"=x\"}]\n"
               "d1 metadata: " +
                   itemJSON + "\n");
    expectJSON("drafts metadata a k=", R"([\"setMetadata\",\"a\",{\"k\":\"\"}])", itemJSON);
}

TEST(Drafts, AddCarriesPairs) {
    const std::string added =
        R"({"id":"c","state":"pending","operationType":"custom","timestamp":-3})";
    expectText("drafts add 001 k=v", "[\"addCustomAction\",\"EXTERNAL_ACTION\",\"001\",\"\","
                                     "{\"k\":\"v\"}]\n"
                                     "d1 add: " +
                                         added + "\n");
    expectJSON("drafts add 001 k=v",
               R"([\"addCustomAction\",\"EXTERNAL_ACTION\",\"001\",\"\",{\"k\":\"v\"}])", added);
}

TEST(Drafts, StartAndStopPrintNothing) {
    expectText("drafts start", "[\"startQueue\"]\n");
    expectText("drafts stop", "[\"stopQueue\"]\n");
    for (const char* word : {"start", "stop"}) {
        expectEither(
            std::string("drafts ") + word + "\n",
            std::string(R"({"level":"log","message":"[\")") + word + R"(Queue\"]"})" + "\n", true);
    }
}

TEST(Drafts, ProcessPrintsTheRuntimesWord) {
    expectText("drafts process", "[\"processNextAction\"]\nd1 process: NO_ACTION_TO_PROCESS\n");
    expectJSON("drafts process", R"([\"processNextAction\"])", R"("NO_ACTION_TO_PROCESS")");
}

TEST(Drafts, ExecutorAnswersTheRuntimesActions) {
    struct Case {
        const char* word;
        const char* answer;
    };
    for (const auto& [word, answer] :
         {Case{"SUCCESS", R"({"type":"SUCCESS"})"},
          Case{"NETWORK_ERROR", R"({"type":"FAILURE","error":{"type":"NETWORK_ERROR",)"
                                R"("message":"zem's executor answers NETWORK_ERROR"}})"},
          Case{"CLIENT_ERROR", R"({"type":"FAILURE","error":{"type":"CLIENT_ERROR",)"
                               R"("message":"zem's executor answers CLIENT_ERROR"}})"}}) {
        const std::string command = std::string("drafts executor ") + word;
        const std::string asked = R"(["setCustomActionExecutor","EXTERNAL_ACTION"])";
        expectText(command, asked + "\nd1 executor: " + word + "\n");
        expectJSON(command, R"([\"setCustomActionExecutor\",\"EXTERNAL_ACTION\"])",
                   std::string("\"") + word + "\"");
        const Host host;
        const auto result = runReady(host, drafts,
                                     command + "\nwait\neval new Promise((reply) => executor(item, "
                                               "reply)).then((result) => tell(result))\n");
        EXPECT_EQ(result.output,
                  asked + "\nd1 executor: " + word + "\n[" + answer + "]\neval: undefined\n");
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.code, 0);
    }
}

TEST(Drafts, AWatchThatIsRecordedHearsTheRuntimesChanges) {
    const Host host;
    const auto result =
        runRecorded(host, drafts, "drafts watch on\ndrafts start\ndrafts remove a\n");
    // The queue starts before the listener is registered, so the watch does not show that change.
    // The removal is answered on the queue that the changes come on, after them.
    EXPECT_EQ(result.output, "[\"startQueue\"]\n[\"removeDraftAction\",\"a\"]\n"
                             "d1 watch: {\"kind\":\"deleted\",\"item\":" +
                                 itemJSON +
                                 ",\"queueState\":\"started\"}\n"
                                 "d3 remove: queue started, 1 item\n"
                                 "  ID  STATE  OPERATION  TARGET  TYPE  AGE  ERROR  MESSAGE\n"
                                 "  b   error  update     -       -     -2   400    Bad Request\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Drafts, WatchPrintsEveryChangeUntilItIsTurnedOff) {
    const Host host;
    const auto ready =
        runReady(host, drafts,
                 "drafts watch on\neval changed('added', failed)\neval changed('started')\n"
                 "drafts remove a\nwait\ndrafts watch off\neval changed('updated', item)\n"
                 "drafts watch on\neval changed('completed', 'no item')\ndrafts remove a\nwait\n",
                 true);
    const std::string removed = R"({"level":"log","message":"[\"removeDraftAction\",\"a\"]"})"
                                "\n";
    const auto evaluated = [](int line) {
        return R"({"command":"eval","name":null,"line":)" + std::to_string(line) +
               ",\"data\":null,\"error\":null}\n";
    };
    const auto change = [](const char* name, int line, const char* kind, const std::string& item) {
        return std::string(R"({"command":"drafts","name":")") + name + R"(","line":)" +
               std::to_string(line) + R"(,"data":{"kind":")" + kind + R"(","item":)" + item +
               R"(,"queueState":"stopped"},"error":null})"
               "\n";
    };
    const auto left = [](const char* name, int line) {
        return std::string(R"({"command":"drafts","name":")") + name + R"(","line":)" +
               std::to_string(line) + R"(,"data":{"queueState":"stopped","items":[)" + failedJSON +
               "]},\"error\":null}\n";
    };
    std::string changes;
    std::string others;
    for (std::size_t start = 0, end = 0;
         (end = ready.output.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string line = ready.output.substr(start, end + 1 - start);
        (line.find("\"kind\"") != std::string::npos ? changes : others) += line;
    }
    EXPECT_EQ(changes, change("d1", 1, "added", failedJSON) + change("d1", 1, "started", "null") +
                           change("d1", 1, "deleted", itemJSON) +
                           change("d3", 8, "completed", "null") +
                           change("d3", 8, "deleted", itemJSON));
    EXPECT_EQ(others, evaluated(2) + evaluated(3) + removed + left("d2", 4) + evaluated(7) +
                          evaluated(9) + removed + left("d4", 10));
    EXPECT_EQ(ready.errors, "");
    EXPECT_EQ(ready.code, 0);
}

TEST(Drafts, AWatchThatEndedBeforeTheRuntimeCameHearsNothing) {
    const Host host;
    const auto result =
        runRecorded(host, drafts, "drafts watch on\ndrafts watch off\ndrafts remove a\n");
    EXPECT_THAT(result.output, testing::Not(testing::HasSubstr("watch")));
    EXPECT_THAT(result.output, testing::HasSubstr("d2 remove: queue stopped, 1 item\n"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Drafts, WhatWasRecordedReachesTheRuntimeByItsKind) {
    const Host host;
    const auto result = runRecorded(host, drafts,
                                    "drafts process\ndrafts metadata a k=v\n"
                                    "drafts merge a into b\ndrafts replace a b\ndrafts remove a\n"
                                    "drafts add 001 k=v\ndrafts executor SUCCESS\ndrafts start\n"
                                    "drafts stop\n");
    std::string asked;
    for (std::size_t start = 0, end = 0;
         (end = result.output.find('\n', start)) != std::string::npos; start = end + 1) {
        if (result.output[start] == '[') {
            asked += result.output.substr(start, result.output.find_first_of(",]", start) - start);
        }
    }
    EXPECT_EQ(asked, R"(["stopQueue"["setCustomActionExecutor"["addCustomAction")"
                     R"(["removeDraftAction"["replaceAction"["mergeActions"["setMetadata")"
                     R"(["processNextAction")");
    for (const char* label : {"d1 process: ", "d2 metadata: ", "d3 merge: ", "d4 replace: ",
                              "d5 remove: ", "d6 add: ", "d7 executor: "}) {
        EXPECT_THAT(result.output, testing::HasSubstr(std::string("\n") + label));
    }
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Drafts, AreWaitedForLikeInvocations) {
    const Host host;
    const std::string slow = drafts +
                             "let done; draftManager.getQueue = () => "
                             "new Promise((resolve) => { done = resolve; });" +
                             set;
    const auto result = host.runCommands(
        slow, "drafts list\ndrafts start\nwait d2\n-wait d1 --for 0\n-wait --for 0\n"
              "eval done({ queueState, items: [] })\nwait d1\neval 2\n");
    const std::string listed = "d1 list: queue started, no items\n";
    const std::string evaluated = "eval: undefined\n";
    EXPECT_THAT(result.output,
                testing::AnyOf("[\"startQueue\"]\n" + listed + evaluated + "eval: 2\n",
                               "[\"startQueue\"]\n" + evaluated + listed + "eval: 2\n"));
    EXPECT_EQ(result.errors, "zem: commands.txt:4: waited 0 seconds in vain for d1 list\n"
                             "zem: commands.txt:5: waited 0 seconds in vain for d1 list\n");
    EXPECT_EQ(result.code, 0);
}

TEST(Drafts, AnUnansweredOneKeepsTheRun) {
    const Host host;
    auto process = host.startCommands(drafts +
                                          "draftManager.removeDraftAction = (id) => { tell(id); "
                                          "return globalThis.kept = new Promise((...functions) => {"
                                          " globalThis.functions = functions; }); };" +
                                          set,
                                      "drafts remove a\n");
    process.waitForLine("[\"a\"]");
    process.signal(SIGINT);
    const auto result = process.wait();
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 130);
}

TEST(Drafts, ThePluginHasTheRuntimesQueueOnceThatIsThere) {
    const Host host;
    const std::string ask = "const ask = (method) => new Promise((resolve) => "
                            "ZemDraftQueue.callProxyMethod(method, '[1]', "
                            "(text) => resolve(['result', text]), "
                            "(text) => resolve(['error', text])));";
    const auto before = host.runScript(ask + "ask('get').then(console.log)");
    EXPECT_EQ(before.output, "[ 'error', 'Unable to get reference to draft queue' ]\n");
    EXPECT_EQ(before.errors, "");
    const std::string wait = "drafts process\nwait\n";
    const std::string waited = "[\"processNextAction\"]\nd1 process: NO_ACTION_TO_PROCESS\n";
    const auto after =
        host.runCommands(ask + drafts + set, wait + "eval ask('get')\neval ask('bad')\n");
    EXPECT_EQ(after.output,
              waited + "eval: [ 'result', 'get [1]' ]\neval: [ 'error', 'refused' ]\n");
    EXPECT_EQ(after.errors, "");
    EXPECT_EQ(after.code, 0);
    const auto lacking = host.runCommands(ask + drafts + "delete draftQueue.callProxyMethod;" + set,
                                          wait + "eval ask('get')\n");
    EXPECT_EQ(lacking.output, waited + "eval: [ 'error', 'unable to invoke callProxyMethod' ]\n");
}

} // namespace
