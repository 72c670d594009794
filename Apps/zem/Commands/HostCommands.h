#pragma once

// The commands that the host carries out without the runtime's services.

#include "CommandContext.h"
#include "CommandWords.h"

namespace zem::host {

void waitForAnswers(CommandContext& context, const CommandWords& words, const CommandOrigin&);
void runSQL(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void evaluate(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void help(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void quit(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);

} // namespace zem::host
