#pragma once

// The commands on the binary store and the network.

#include "CommandContext.h"
#include "CommandWords.h"

namespace zem::host {

void listBinaries(CommandContext& context, const CommandWords&, const CommandOrigin& origin);
void saveBinary(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void switchNetwork(CommandContext& context, const CommandWords& words, const CommandOrigin&);

} // namespace zem::host
