#pragma once

// Carries out the commands on drafts.

#include "Calls.h"
#include "DraftsCommand.h"
#include "Report.h"
#include "Runtime/Runtime.h"
#include <zem/Core/DataServiceResult.h>

#include <functional>
#include <memory>
#include <optional>

namespace zem::host {

/// Used on one thread.
class Drafts {
  public:
    /// Does something with the services, and returns when that has been done.
    using Ask = std::function<void(std::function<void(RuntimeServices&)>)>;

    Drafts(std::shared_ptr<Calls> calls, Ask ask)
        : calls(std::move(calls))
        , ask(std::move(ask)) {}

    /// Throws a CommandFailure.
    void perform(const DraftsCommand& command, const CommandOrigin& origin);

  private:
    void perform(const ListDrafts& command, CallAnswer answer) const;
    void perform(const ShowDraft& command, CallAnswer answer) const;
    void perform(const RemoveDraft& command, CallAnswer answer) const;
    void perform(const ReplaceDraft& command, CallAnswer answer) const;
    void perform(const MergeDrafts& command, CallAnswer answer) const;
    void perform(const SetDraftMetadata& command, CallAnswer answer) const;
    void perform(const ProcessDraft& command, CallAnswer answer) const;
    void perform(const AddDraft& command, CallAnswer answer) const;
    void perform(const SetDraftsExecutor& command, CallAnswer answer) const;
    void perform(const RunDrafts& command, const CommandOrigin& origin);
    void perform(const WatchDrafts& command, const CommandOrigin& origin);

    void beginWatch(const CommandOrigin& origin);
    void endWatch();

    struct Watch {
        std::shared_ptr<Call> call;
        /// Filled and used on the services' thread.
        std::shared_ptr<Unsubscribe> end;
    };

    const std::shared_ptr<Calls> calls;
    const Ask ask;
    std::optional<Watch> watch;
};

} // namespace zem::host
