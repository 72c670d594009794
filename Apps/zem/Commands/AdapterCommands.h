#pragma once

// The commands on adapters of the runtime's data service, and uploads by way of it.

#include "CommandContext.h"
#include "CommandWords.h"

namespace zem::host {

void subscribe(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void unsubscribe(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void invoke(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void upload(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void setTTL(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);

} // namespace zem::host
