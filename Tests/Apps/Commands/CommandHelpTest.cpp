// The commands that explain the others, and the help of the program.

#include <gmock/gmock.h>

#include <Apps/Host.h>

namespace {

using test::Host;

constexpr const char* allCommands =
    R"(  subscribe ADAPTER CONFIG [--priority P] [--cache-policy JSON] [--as NAME]
                                prints every result of an adapter until
                                unsubscribe
  unsubscribe NAME              ends a subscription
  invoke ADAPTER CONFIG [--priority P] [--cache-policy JSON] [--metadata K=V]...
         [--replace-draft ID]   prints one result of an adapter
  upload FILE --title T [--description D] [--document ID] [--type MIME]
         [--metadata K=V]...    stores a file as a binary and has the runtime
                                create a document of it, or a new version of the
                                document ID; MIME is guessed from the file's
                                name otherwise
  ttl record|metadata N         sets the time to live of records or of metadata
  drafts list                   a table of the drafts; an age is counted from
                                their timestamp, taken to be in milliseconds
                                since 1970, and is the plain number where that
                                is no time that has passed
  drafts show ID                prints a draft
  drafts remove ID              removes a draft and prints the others
  drafts replace ID WITH        puts the draft WITH in the place of ID
  drafts merge SOURCE into TARGET
                                merges one draft into another
  drafts metadata ID K=V...     sets the metadata of a draft
  drafts start                  starts the upload of the drafts
  drafts stop                   stops the upload
  drafts process                uploads the next draft
  drafts add TARGET K=V...      queues an external action
  drafts executor SUCCESS|NETWORK_ERROR|CLIENT_ERROR
                                has every external action answered so
  drafts watch on|off           prints every change of the queue
  wait [NAME] [--for SECONDS]   up to 30 seconds for the answers to invocations,
                                uploads and commands on drafts and the first
                                emission of every subscription, or for one of
                                them
  binary list                   a table of the binaries that are stored or
                                cached
  binary save HANDLE FILE       writes a binary to a file, whole or not at all
  network on|off                while it is off, every request fails with
                                "offline", and so do those that were under way
  sql TEXT [PARAM...]           PARAM is JSON (a number, a string, true, false,
                                null) or else text as it stands
  eval JAVASCRIPT               prints the value, or what its promise is settled
                                with
  help [COMMAND]                prints this text, or the part of one command
  ? [COMMAND]                   the same as help
  quit                          ends the run
  exit                          the same as quit

  They are carried out by the runtime that the bundle sets, at once, later, or
  as a promise of it: globalThis.runtime = { dataService, draftManager,
  draftQueue }, where drafts process needs the draftQueue, the other commands on
  drafts the draftManager, and those above them the dataService. What is asked
  for before is handed over then. Words are quoted as in a shell, P is high,
  normal or background, lines that begin with # are comments. Results are
  labelled with the name of their subscription (s1, s2 ... or --as NAME),
  invocation or upload (i1, i2 ...) or command on drafts (d1, d2 ...). With
  --json each is one object with these keys:
  {"command":"invoke","name":"i1","line":1,"data":{},"error":null}
)";

/// The commands print this text, without a runtime and without waiting for one.
void expectOutput(const std::string& commands, const std::string& output) {
    const Host host;
    const auto result = host.runCommands("", commands);
    EXPECT_EQ(result.output, output) << commands;
    EXPECT_EQ(result.errors, "") << commands;
    EXPECT_EQ(result.code, 0) << commands;
}

void expectFailure(const std::string& command, const std::string& text) {
    const Host host;
    const auto result = host.runCommands("", command + "\n");
    EXPECT_EQ(result.output, "") << command;
    EXPECT_EQ(result.errors, "zem: commands.txt:1: " + text + "\n") << command;
    EXPECT_EQ(result.code, 4) << command;
}

TEST(CommandHelp, ShowsEveryCommandAndTheRulesForAll) {
    expectOutput("help\n", allCommands);
    expectOutput("?\n", allCommands);
}

TEST(CommandHelp, IsPartOfTheHelpOfTheProgram) {
    const Host host;
    for (const char* command : {"run", "shell"}) {
        EXPECT_THAT(host.run({command, "--help"}).output,
                    testing::HasSubstr(std::string("\n") + allCommands + "\nGlobals:\n"))
            << command;
    }
}

TEST(CommandHelp, OfOneCommandShowsItsFormAndPurpose) {
    expectOutput(
        "help invoke\n? quit\n",
        "  invoke ADAPTER CONFIG [--priority P] [--cache-policy JSON] [--metadata K=V]...\n"
        "         [--replace-draft ID]   prints one result of an adapter\n"
        "  quit                          ends the run\n");
}

TEST(CommandHelp, OfAFirstWordShowsAllItsCommands) {
    const std::string all = allCommands;
    const std::size_t begin = all.find("  drafts list");
    expectOutput("help drafts\n", all.substr(begin, all.find("  wait ") - begin));
}

TEST(CommandHelp, OfNoCommandFails) {
    expectFailure("help nonsense", "there is no command \"nonsense\"");
    expectFailure("help list", "there is no command \"list\"");
    expectFailure("help ''", "there is no command \"\"");
    expectFailure("help drafts list", "expected: help [COMMAND]");
    expectFailure("? a b", "expected: ? [COMMAND]");
}

TEST(CommandHelp, IsAStringInJSON) {
    const Host host;
    const auto result = host.runCommands("", "\nhelp exit\n", {"--json"});
    EXPECT_EQ(result.output, R"({"command":"help","name":null,"line":2,"data":)"
                             R"("  exit                          the same as quit","error":null})"
                             "\n");
    EXPECT_EQ(result.errors, "");
}

} // namespace
