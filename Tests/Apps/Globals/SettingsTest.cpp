#include <gtest/gtest.h>

#include <Apps/Host.h>

namespace {

using test::Host;

TEST(Settings, TextBecomesAGlobal) {
    const Host host;
    const auto result = host.runScript(
        "console.log(JSON.stringify([ONE, $two, _3, EMPTY])); ONE = 2; console.log(ONE, "
        "globalThis.$two)",
        {"--set", "ONE=a=b", "--set", "$two=[1]", "--set=_3=-x", "--set", "EMPTY="});
    EXPECT_EQ(result.output, "[\"a=b\",\"[1]\",\"-x\",\"\"]\n2 [1]\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Settings, AFileBecomesWhatItHolds) {
    const Host host;
    host.write("value.json", " {\"a\": [1, 2.5, \"é\\ud800\", null, true], \"b\": 1e999}\n");
    host.write("text.json", "\"text\"");
    const auto result = host.runScript("console.log(VALUE, TEXT, Array.isArray(VALUE.a))",
                                       {"--set", "VALUE=@value.json", "--set", "TEXT=@text.json"});
    EXPECT_EQ(result.output, "{ a: [ 1, 2.5, 'é\\ud800', null, true ], b: Infinity } text true\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Settings, AFileThatIsNotJSONIsNamedWithThePlace) {
    struct Case {
        const char* text;
        const char* place;
    };
    for (const auto& [text, place] : {
             Case{"{\"a\": [1, 2,, 3]}", "1:13: not valid JSON"},
             Case{"{\n  \"é\": 1,\n  \"b\": 01\n}", "3:9: not valid JSON"},
             Case{"[\"é\", x]", "1:7: not valid JSON"},
             Case{"{\"a\": 1", "1:8: not valid JSON"},
             Case{"{\"a\": 1} x", "1:10: not valid JSON"},
             Case{"", "1:1: not valid JSON"},
             Case{"[1,]", "1:4: not valid JSON"},
             Case{"{\"a\":\n\"\xff\"}", "2:2: not valid UTF-8"},
         }) {
        const Host host;
        host.write("value.json", text);
        const auto result = host.runScript("console.log('never')", {"--set", "VALUE=@value.json"});
        EXPECT_EQ(result.errors, std::string("zem: value.json:") + place + "\n") << text;
        EXPECT_EQ(result.output, "") << text;
        EXPECT_EQ(result.code, 2) << text;
    }
}

TEST(Settings, AFileThatCannotBeReadIsNamed) {
    const Host host;
    const auto result = host.runScript("console.log('never')", {"--set", "VALUE=@none.json"});
    EXPECT_EQ(result.errors, "zem: cannot read none.json: No such file or directory\n");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.code, 2);
}

TEST(Settings, NoGlobalIsReplaced) {
    const Host host;
    for (const char* name : {"console", "Object", "undefined", "host"}) {
        const auto result =
            host.runScript("console.log('never')", {"--set", std::string(name) + "=x"});
        EXPECT_EQ(result.errors,
                  std::string("zem: --set ") + name + ": there is a global of that name already\n");
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.code, 2);
    }
    EXPECT_EQ(host.runScript("", {"--set", "A=1", "--set", "A=2"}).errors,
              "zem: --set A: there is a global of that name already\n");
}

} // namespace
