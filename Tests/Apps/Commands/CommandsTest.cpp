// The effect and the output of each command.

#include <gmock/gmock.h>

#include <Apps/Host.h>
#include <Apps/Runtimes.h>
#include <csignal>

namespace {

using test::Host;
using test::runtimeAtOnce;

void expectOutput(const std::string& commands, const std::string& output) {
    const Host host;
    const auto result = host.runCommands(runtimeAtOnce, commands);
    EXPECT_EQ(result.output, output) << commands;
    EXPECT_EQ(result.errors, "") << commands;
    EXPECT_EQ(result.code, 0) << commands;
}

TEST(Commands, InvokeCarriesAdapterConfigAndContext) {
    expectOutput("invoke a '{\"x\": \"y z\"}'\nwait\n",
                 R"(["invokeAdapter","a","{\"x\": \"y z\"}","no context"])"
                 "\ni1 a: {\"id\":\"a\"}\n");
    expectOutput("invoke a no-json --priority background "
                 "--cache-policy '{\"staleDurationSeconds\":60,\"type\":\"cache-and-network\"}'\n"
                 "wait\n",
                 R"(["invokeAdapter","a","no-json",{"cachePolicy":{"staleDurationSeconds":60,)"
                 R"("type":"cache-and-network"},"priority":"background"}])"
                 "\ni1 a: {\"id\":\"a\"}\n");
    expectOutput("invoke a '' --priority high\nwait\n",
                 R"(["invokeAdapter","a","",{"priority":"high"}])"
                 "\ni1 a: {\"id\":\"a\"}\n");
}

TEST(Commands, InvokeWithMetadataOrADraftToReplaceIsAMutatingCall) {
    expectOutput("invoke a {} --metadata k=v --metadata 'other key==x'\nwait\n",
                 R"(["invokeAdapterWithMetadata","a","{}",{"k":"v","other key":"=x"}])"
                 "\ni1 a: {}\n");
    expectOutput("invoke a {} --replace-draft 'id 1'\nwait\n",
                 R"(["invokeAdapterWithDraftToReplace","a","{}","id 1"])"
                 "\ni1 a: {}\n");
}

TEST(Commands, SubscribeLabelsEveryEmissionUntilItIsUnsubscribed) {
    // The first answer shows that the runtime is there: the end of a subscription that was recorded
    // reaches it in no order that could be told. Once the script has waited longer than the runtime
    // does, the second emission is on its way, and the next answer after it.
    const Host host;
    auto result = host.runCommands(
        runtimeAtOnce, "invoke a {}\nwait\nsubscribe twice {} --as mine --priority normal\n"
                       "wait mine\neval new Promise(r => setTimeout(r, 20))\ninvoke b {}\n"
                       "wait i2\nunsubscribe mine\nsubscribe x {} --as mine\nwait\n");
    const std::string second = "mine twice: {\"n\":2}\n";
    const std::size_t at = result.output.find(second);
    ASSERT_NE(at, std::string::npos) << result.output;
    EXPECT_GT(at, result.output.find("mine twice: {\"n\":1}\n"));
    EXPECT_LT(at, result.output.find("i2 b: "));
    result.output.erase(at, second.size());
    EXPECT_EQ(result.output, R"(["invokeAdapter","a","{}","no context"]
i1 a: {"id":"a"}
["subscribeToAdapter","twice","{}",{"priority":"normal"}]
mine twice: {"n":1}
eval: undefined
["invokeAdapter","b","{}","no context"]
i2 b: {"id":"b"}
["unsubscribe","twice"]
["subscribeToAdapter","x","{}","no context"]
mine x: {"n":1}
)");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Commands, NamesThatNobodyGaveAreCounted) {
    expectOutput("subscribe a {} --as s1\nwait\nsubscribe b {}\nwait\ninvoke c {}\nwait\n"
                 "invoke d {}\nwait i2\n",
                 R"(["subscribeToAdapter","a","{}","no context"])"
                 "\ns1 a: {\"n\":1}\n"
                 R"(["subscribeToAdapter","b","{}","no context"])"
                 "\ns2 b: {\"n\":1}\n"
                 R"(["invokeAdapter","c","{}","no context"])"
                 "\ni1 c: {\"id\":\"c\"}\n"
                 R"(["invokeAdapter","d","{}","no context"])"
                 "\ni2 d: {\"id\":\"d\"}\n");
}

TEST(Commands, TTLPrintsWhenTheRuntimeHasTakenIt) {
    expectOutput("ttl record 5\nttl metadata -9007199254740991\n",
                 "[\"setRimvoRecordTTL\",5]\nttl record: 5\n"
                 "[\"setMetadataTTL\",-9007199254740991]\nttl metadata: -9007199254740991\n");
}

TEST(Commands, WaitIsForAnswersAndFirstEmissions) {
    // Calls reach the runtime side by side, in no order that could be told.
    const Host host;
    const auto result =
        host.runCommands(runtimeAtOnce, "invoke later {}\nsubscribe a {}\nwait\neval `done`\n");
    for (const char* line : {"i1 later: {\"late\":true}\n", "s1 a: {\"n\":1}\n"}) {
        EXPECT_THAT(result.output, testing::HasSubstr(line));
    }
    EXPECT_THAT(result.output, testing::EndsWith("eval: 'done'\n"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Commands, AFailedEmissionIsAnEmission) {
    expectOutput("subscribe bad {}\nwait\n", R"(["subscribeToAdapter","bad","{}","no context"])"
                                             "\ns1 bad: failed: executeAdapter error - boom\n");
}

TEST(Commands, SQLRunsOnTheStoreOfTheBundle) {
    expectOutput("sql \"create table t (a, b, c, d, e, f)\"\n"
                 "sql 'insert into t values (?, ?, ?, ?, ?, ?)' 1.5 true null text '\"7\"' '[1]'\n"
                 "sql 'select * , typeof(e) as type from t'\n"
                 "sql 'select 1 where 0'\n"
                 "sql 'select ?' -3\n",
                 "sql: done\nsql: done\n"
                 "sql: [\"a\",\"b\",\"c\",\"d\",\"e\",\"f\",\"type\"]\n"
                 "sql: [1.5,1,null,\"text\",\"7\",\"[1]\",\"text\"]\n"
                 "sql: [\"1\"]\n"
                 "sql: [\"?\"]\nsql: [-3]\n");
}

TEST(Commands, EvalPrintsTheValueOrWhatItsPromiseIsSettledWith) {
    expectOutput("eval 1 + 1\n"
                 "eval 'a' + \"b\"\n"
                 "eval '\"in \" + \"quotes\"'\n"
                 "eval  const kept = { a: [1, 'x'] }; kept\n"
                 "eval kept.a.length\n"
                 "eval undefined\n"
                 "eval new Promise((resolve) => setTimeout(() => resolve('late'), 5))\n",
                 "eval: 2\neval: 'ab'\neval: 'in quotes'\neval: { a: [ 1, 'x' ] }\neval: 2\n"
                 "eval: undefined\neval: 'late'\n");
}

TEST(Commands, WordsAreQuotedAsInAShell) {
    expectOutput("sql 'select ?, ?, ?, ?, ?' \"a \\\"b\\\" \\\\ 'c' \\n\" 'd\"e'\\''f' g\\ h '' "
                 "x'y'\"z\"\n",
                 R"(sql: ["?","?","?","?","?"])"
                 "\n"
                 R"(sql: ["a \"b\" \\ 'c' \\n","d\"e'f","g h","","xyz"])"
                 "\n");
}

TEST(Commands, CommentsBlankLinesAndWhiteSpaceAreSkipped) {
    expectOutput("\n   \n# eval 1\n\t  # eval 2\n  eval 3\t\r\n-eval 4\n- eval 5\neval 6",
                 "eval: 3\neval: 4\neval: 5\neval: 6\n");
}

TEST(Commands, QuitAndExitEndWhateverIsOpen) {
    for (const std::string end : {"quit", "exit"}) {
        expectOutput("eval setInterval(() => {}, 1); 'on'\nttl record 1\n" + end +
                         "\neval `never`\n",
                     "eval: 'on'\n[\"setRimvoRecordTTL\",1]\nttl record: 1\n");
        const Host host;
        const auto result =
            host.runCommands(runtimeAtOnce, "invoke never {}\nsubscribe silent {}\n" + end + "\n");
        EXPECT_EQ(result.errors, "") << end;
        EXPECT_EQ(result.code, 0) << end;
    }
}

TEST(Commands, TheRunEndsWhenTheLastAnswerIsThere) {
    const Host host;
    const auto result = host.runCommands(runtimeAtOnce, "subscribe silent {}\ninvoke later {}\n");
    EXPECT_THAT(result.output, testing::HasSubstr("i1 later: {\"late\":true}\n"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Commands, AnUnansweredInvocationKeepsTheRun) {
    const Host host;
    auto process = host.startCommands(runtimeAtOnce, "invoke never {}\n");
    process.waitForLine(R"(["invokeAdapter","never","{}","no context"])");
    process.signal(SIGINT);
    const auto result = process.wait();
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 130);
}

TEST(Commands, AnEmptyFileEndsLikeNone) {
    expectOutput("", "");
}

TEST(Commands, CtrlCEndsAWait) {
    const Host host;
    auto process = host.startCommands(runtimeAtOnce, "invoke never {}\nwait --for 100000\n");
    process.waitForLine(R"(["invokeAdapter","never","{}","no context"])");
    process.signal(SIGINT);
    const auto result = process.wait();
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 130);
}

TEST(Commands, CtrlCEndsAScriptThatNeverReturns) {
    const Host host;
    auto process = host.startCommands("", "eval console.log('running'); for (;;) {}\n");
    process.waitForLine("running");
    process.signal(SIGINT);
    const auto result = process.wait();
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 130);
}

TEST(Commands, HostExitEndsThem) {
    const Host host;
    for (const char* commands : {"eval host.exit(7)\neval console.log('never')\n",
                                 "eval setTimeout(() => host.exit(7)); 1\n"
                                 "eval new Promise(() => {})\neval console.log('never')\n",
                                 "eval setTimeout(() => host.exit(7)); 1\ninvoke never {}\n"
                                 "wait --for 100000\neval console.log('never')\n"}) {
        const auto result = host.runCommands(runtimeAtOnce, commands);
        EXPECT_THAT(result.output, testing::Not(testing::HasSubstr("\nnever\n"))) << commands;
        EXPECT_EQ(result.errors, "") << commands;
        EXPECT_EQ(result.code, 7) << commands;
    }
}

TEST(Commands, AnUncaughtExceptionOfTheBundleEndsThem) {
    const Host host;
    const auto result = host.runCommands("throw 'up'", "eval new Promise(() => {})\n");
    EXPECT_EQ(result.errors, "Uncaught 'up'\n");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.code, 1);
}

TEST(Commands, FromStandardInputAreCarriedOutAsTheyCome) {
    const Host host;
    host.write("bundle.js", runtimeAtOnce);
    auto process = host.startWithInput({"run", "bundle.js", "--memory", "--commands", "-"});
    process.write("eval `first`\n");
    process.waitForLine("eval: 'first'");
    process.write("inv");
    process.write("oke a {}\nwait\n");
    process.waitForLine("i1 a: {\"id\":\"a\"}");
    process.write("eval `without an end`");
    process.closeInput();
    const auto result = process.wait();
    EXPECT_THAT(result.output, testing::EndsWith("eval: 'without an end'\n"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Commands, CtrlCEndsAWaitForStandardInput) {
    const Host host;
    host.write("bundle.js", "");
    auto process = host.startWithInput({"run", "bundle.js", "--memory", "--commands", "-"});
    process.write("eval 1\n");
    process.waitForLine("eval: 1");
    process.signal(SIGINT);
    EXPECT_EQ(process.wait().code, 130);
}

TEST(Commands, EveryLineOfJSONHasTheSameKeys) {
    const Host host;
    const auto result = host.runCommands(
        runtimeAtOnce,
        "invoke a {}\nwait\n-invoke bad {}\nwait\nsubscribe s {} --as 'my \"s\"'\nwait\n"
        "ttl record 5\neval ({ a: [1] })\neval undefined\neval 10n\neval () => 1\n"
        "sql 'select 1.5 as x'\n-eval throw 'up'\n-nonsense\n",
        {"--json"});
    std::string results;
    for (std::size_t start = 0, end = 0;
         (end = result.output.find('\n', start)) != std::string::npos; start = end + 1) {
        const std::string line = result.output.substr(start, end - start);
        if (!line.starts_with("{\"level\"")) {
            results += line + "\n";
        }
    }
    EXPECT_EQ(results,
              R"({"command":"invoke","name":"i1","line":1,"data":{"id":"a"},"error":null}
{"command":"invoke","name":"i2","line":3,"data":null,"error":"executeAdapter error - boom"}
{"command":"subscribe","name":"my \"s\"","line":5,"data":{"n":1},"error":null}
{"command":"ttl","name":"record","line":7,"data":5,"error":null}
{"command":"eval","name":null,"line":8,"data":{"a":[1]},"error":null}
{"command":"eval","name":null,"line":9,"data":null,"error":null}
{"command":"eval","name":null,"line":10,"data":"10n","error":null}
{"command":"eval","name":null,"line":11,"data":"[Function (anonymous)]","error":null}
{"command":"sql","name":null,"line":12,"data":{"columns":["x"],"rows":[[1.5]]},"error":null}
{"command":"eval","name":null,"line":13,"data":null,"error":"'up'"}
{"command":"nonsense","name":null,"line":14,"data":null,"error":"there is no command \"nonsense\""}
)");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

} // namespace
