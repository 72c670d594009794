#pragma once

// The commands on drafts.

#include "CommandContext.h"
#include "CommandWords.h"

namespace zem::host {

void listDrafts(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void showDraft(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void removeDraft(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void replaceDraft(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void mergeDrafts(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void setDraftMetadata(CommandContext& context, const CommandWords& words,
                      const CommandOrigin& origin);
void startDrafts(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void stopDrafts(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void processDraft(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void addDraft(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);
void setDraftsExecutor(CommandContext& context, const CommandWords& words,
                       const CommandOrigin& origin);
void watchDrafts(CommandContext& context, const CommandWords& words, const CommandOrigin& origin);

} // namespace zem::host
