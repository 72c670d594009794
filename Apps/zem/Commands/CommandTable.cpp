#include "CommandTable.h"

#include "AdapterCommands.h"
#include "BinaryCommands.h"
#include "DraftsCommands.h"
#include "HostCommands.h"
#include <zem/Core/AdapterRequestContext.h>

#include <algorithm>

namespace zem::host {

namespace {

using Count = CommandArgument::Count;
using Completion = CommandArgument::Completion;

CommandOption priorityOption() {
    CommandOption option{"--priority", "P", "TEXT"};
    for (const auto& [priority, text] : adapterRequestPriorityTexts) {
        option.words.push_back(text);
    }
    return option;
}

CommandOption cachePolicyOption() {
    return {"--cache-policy", "JSON", "TEXT"};
}

std::vector<Command> makeTable() {
    return {
        {.name = "subscribe",
         .arguments = {{"ADAPTER"}, {"CONFIG"}},
         .options = {priorityOption(), cachePolicyOption(), {"--as", "NAME", "NAME"}},
         .help = "prints every result of an adapter until unsubscribe",
         .perform = subscribe},
        {.name = "unsubscribe",
         .arguments = {{.name = "NAME", .completion = Completion::subscriptions}},
         .help = "ends a subscription",
         .perform = unsubscribe},
        {.name = "invoke",
         .arguments = {{"ADAPTER"}, {"CONFIG"}},
         // The runtime's mutating calls take no context.
         .options = {priorityOption(),
                     cachePolicyOption(),
                     {.name = "--metadata",
                      .value = "K=V",
                      .type = "KEY=VALUE",
                      .isRepeatable = true,
                      .excludes = {"--priority", "--cache-policy"}},
                     {.name = "--replace-draft",
                      .value = "ID",
                      .type = "ID",
                      .excludes = {"--priority", "--cache-policy", "--metadata"}}},
         .help = "prints one result of an adapter",
         .perform = invoke},
        {.name = "upload",
         .arguments = {{"FILE"}},
         .options =
             {{.name = "--title", .value = "T", .type = "TEXT", .isRequired = true},
              {"--description", "D", "TEXT"},
              {"--document", "ID", "ID"},
              {"--type", "MIME", "TYPE/SUBTYPE"},
              {.name = "--metadata", .value = "K=V", .type = "KEY=VALUE", .isRepeatable = true}},
         .help = "stores a file as a binary and has the runtime create a document of it, or a new "
                 "version of the document ID; MIME is guessed from the file's name otherwise",
         .perform = upload},
        {.name = "ttl",
         .arguments = {{.name = "WHAT", .words = {"record", "metadata"}}, {"N"}},
         .help = "sets the time to live of records or of metadata",
         .perform = setTTL},
        {.group = "drafts",
         .name = "list",
         .help = "a table of the drafts; an age is counted from their timestamp, taken to be in "
                 "milliseconds since 1970, and is the plain number where that is no time that has "
                 "passed",
         .perform = listDrafts},
        {.group = "drafts",
         .name = "show",
         .arguments = {{"ID"}},
         .help = "prints a draft",
         .perform = showDraft},
        {.group = "drafts",
         .name = "remove",
         .arguments = {{"ID"}},
         .help = "removes a draft and prints the others",
         .perform = removeDraft},
        {.group = "drafts",
         .name = "replace",
         .arguments = {{"ID"}, {"WITH"}},
         .help = "puts the draft WITH in the place of ID",
         .perform = replaceDraft},
        {.group = "drafts",
         .name = "merge",
         .arguments = {{"SOURCE"}, {.name = "into", .words = {"into"}}, {"TARGET"}},
         .help = "merges one draft into another",
         .perform = mergeDrafts},
        {.group = "drafts",
         .name = "metadata",
         .arguments = {{"ID"}, {"K=V", Count::atLeastOne}},
         .help = "sets the metadata of a draft",
         .perform = setDraftMetadata},
        {.group = "drafts",
         .name = "start",
         .help = "starts the upload of the drafts",
         .perform = startDrafts},
        {.group = "drafts", .name = "stop", .help = "stops the upload", .perform = stopDrafts},
        {.group = "drafts",
         .name = "process",
         .help = "uploads the next draft",
         .perform = processDraft},
        {.group = "drafts",
         .name = "add",
         .arguments = {{"TARGET"}, {"K=V", Count::atLeastOne}},
         .help = "queues an external action",
         .perform = addDraft},
        {.group = "drafts",
         .name = "executor",
         .arguments = {{.name = "RESULT", .words = {"SUCCESS", "NETWORK_ERROR", "CLIENT_ERROR"}}},
         .help = "has every external action answered so",
         .perform = setDraftsExecutor},
        {.group = "drafts",
         .name = "watch",
         .arguments = {{.name = "SWITCH", .words = {"on", "off"}}},
         .help = "prints every change of the queue",
         .perform = watchDrafts},
        {.name = "wait",
         .arguments = {{.name = "NAME",
                        .count = Count::atMostOne,
                        .completion = Completion::subscriptions}},
         .options = {{"--for", "SECONDS", "SECONDS"}},
         .help = "up to 30 seconds for the answers to invocations, uploads and commands on drafts "
                 "and the first emission of every subscription, or for one of them",
         .perform = waitForAnswers},
        {.group = "binary",
         .name = "list",
         .help = "a table of the binaries that are stored or cached",
         .perform = listBinaries},
        {.group = "binary",
         .name = "save",
         .arguments = {{"HANDLE"}, {"FILE"}},
         .help = "writes a binary to a file, whole or not at all",
         .perform = saveBinary},
        {.name = "network",
         .arguments = {{.name = "SWITCH", .words = {"on", "off"}}},
         .help = "while it is off, every request fails with \"offline\", and so do those that were "
                 "under way",
         .perform = switchNetwork},
        {.name = "sql",
         .arguments = {{"TEXT"}, {"PARAM", Count::any}},
         .help = "PARAM is JSON (a number, a string, true, false, null) or else text as it stands",
         .perform = runSQL},
        {.name = "eval",
         .arguments = {{"JAVASCRIPT"}},
         .help = "prints the value, or what its promise is settled with",
         .parse = Command::Syntax::script,
         .perform = evaluate},
        {.name = "help",
         .arguments = {{.name = "COMMAND",
                        .count = Count::atMostOne,
                        .completion = Completion::commands}},
         .help = "prints this text, or the part of one command",
         .perform = help},
        {.name = "?",
         .arguments = {{.name = "COMMAND",
                        .count = Count::atMostOne,
                        .completion = Completion::commands}},
         .help = "the same as help",
         .perform = help},
        {.name = "quit", .help = "ends the run", .perform = quit},
        {.name = "exit", .help = "the same as quit", .perform = quit},
    };
}

} // namespace

std::span<const Command> commandTable() {
    static const std::vector<Command> table = makeTable();
    return table;
}

const Command* findCommand(std::string_view group, std::string_view name) {
    for (const Command& command : commandTable()) {
        if (command.group == group && command.name == name) {
            return &command;
        }
    }
    return nullptr;
}

std::vector<std::string_view> commandsOfGroup(std::string_view group) {
    std::vector<std::string_view> names;
    for (const Command& command : commandTable()) {
        if (!command.group.empty() && command.group == group) {
            names.push_back(command.name);
        }
    }
    return names;
}

std::vector<std::string_view> firstWordsOfCommands() {
    std::vector<std::string_view> words;
    for (const Command& command : commandTable()) {
        const std::string_view word = command.group.empty() ? command.name : command.group;
        if (std::ranges::find(words, word) == words.end()) {
            words.push_back(word);
        }
    }
    return words;
}

} // namespace zem::host
