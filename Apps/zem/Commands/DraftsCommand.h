#pragma once

// What a line that begins with "drafts" asks for.

#include "Arguments.h"
#include "CommandShape.h"
#include <zem/Core/CustomActionResult.h>
#include <zem/Core/DataServiceResult.h>

#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace zem::host {

struct ListDrafts {};

struct ShowDraft {
    std::string id;
};

struct RemoveDraft {
    std::string id;
};

struct ReplaceDraft {
    std::string id;
    std::string withId;
};

struct MergeDrafts {
    std::string sourceId;
    std::string targetId;
};

struct SetDraftMetadata {
    std::string id;
    Metadata metadata;
};

struct RunDrafts {
    bool start = false;
};

struct ProcessDraft {};

struct AddDraft {
    std::string targetId;
    Metadata metadata;
};

struct SetDraftsExecutor {
    /// The word that stands for it.
    std::string word;
    /// What the executor answers.
    CustomActionResult result;
};

struct WatchDrafts {
    bool on = false;
};

struct DraftsCommand {
    /// Its word: "list", "show" ...
    std::string name;
    std::variant<ListDrafts, ShowDraft, RemoveDraft, ReplaceDraft, MergeDrafts, SetDraftMetadata,
                 RunDrafts, ProcessDraft, AddDraft, SetDraftsExecutor, WatchDrafts>
        value;
};

/// Of the words after "drafts". Throws a CommandFailure.
DraftsCommand parseDrafts(const Arguments& words);

/// What may follow "drafts".
std::span<const CommandShape> draftsShapes();

} // namespace zem::host
