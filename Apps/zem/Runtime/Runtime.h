#pragma once

// The services of the runtime, before and after the bundle has set it.

#include "RuntimeParts.h"
#include <zem/Core/DataServiceProtocol.h>
#include <zem/Core/DraftManagerProtocol.h>
#include <zem/Core/DraftQueue.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/RunLoop.h>
#include <zem/Tessel/Activity.h>
#include <zem/TesselPluginZEM/DraftQueue/DraftQueuePlugin.h>

#include <functional>
#include <memory>
#include <string>

namespace zem::host {

/// What can be asked, whether there is a runtime yet or not.
class RuntimeServices {
  public:
    virtual ~RuntimeServices() = default;
    virtual DataServiceProtocol& dataService() = 0;
    virtual DraftManagerProtocol& draftManager() = 0;
    /// Of the draft queue.
    virtual void processNextAction(ProcessActionCallback response) = 0;
};

/// Until the runtime arrives everything that is asked for is recorded, and then handed over. A
/// runtime may lack a part: what needs that fails, and the rest works.
///
/// The services live on a thread of their own, and everything is done there, in order: so nothing
/// is asked of the one after its requests were handed over to the other. The thread's run loop
/// drives the watchdog. It is not the main thread, because handing over waits for JavaScript, which
/// may end the run at that moment (host.exit) and then never comes back; the main thread sees to
/// that end.
class Runtime {
  public:
    /// Called on the services' thread; may be empty. What was recorded for the missing parts is
    /// about to be dropped, and what was recorded for the others has been handed over.
    using Listener = std::function<void(const MissingParts& missing)>;

    /// `draftQueuePlugin` is given the runtime's draft queue when that is there.
    Runtime(std::shared_ptr<tessel::Activity> activity,
            std::shared_ptr<DraftQueuePlugin> draftQueuePlugin, Listener listener);
    ~Runtime();

    /// Does `work`, in the order of the calls. Any thread, never before returning.
    void perform(std::function<void(RuntimeServices&)> work);

    /// What the bundle did. Of several runtimes the first that has a part which can be used counts.
    void promised();
    void arrived(RuntimeParts parts);
    void failed(std::string why);

    /// Nothing is done any more; `quiet` is called on the services' thread when what was asked
    /// before has been.
    void close(std::function<void()> quiet);

    /// Which parts answer nothing, all of them while there is no runtime. Any thread.
    MissingParts missing() const;

  private:
    class Services;
    void post(std::function<void(Services&)> work);

    std::shared_ptr<tessel::Activity> activity;
    platform::RunLoopThread thread;
    std::shared_ptr<Services> services;
};

} // namespace zem::host
