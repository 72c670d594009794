#pragma once

// The services of the bundle's runtime.

#include "RuntimeParts.h"
#include <zem/Core/BinaryStore.h>
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

/// Usable before the runtime has arrived: calls are recorded then.
class RuntimeServices {
  public:
    virtual ~RuntimeServices() = default;
    virtual DataServiceProtocol& dataService() = 0;
    virtual DraftManagerProtocol& draftManager() = 0;
    /// Calls the draft queue.
    virtual void processNextAction(ProcessActionCallback response) = 0;
};

/// Records all calls until the runtime arrives, and then hands them over. A runtime may lack a
/// part: calls of that part fail, the others work.
///
/// The services live on a thread of their own and are used there only, in order: no call reaches
/// the recording service after its calls were handed over. The thread's run loop drives the
/// watchdog. The main thread cannot do this: handing over waits for JavaScript, which may call
/// host.exit and not return. The main thread must end the run then.
class Runtime {
  public:
    /// Called on the services' thread; may be empty. The recorded calls of the other parts have
    /// been handed over; those of the missing parts are dropped after it returns.
    using Listener = std::function<void(const MissingParts& missing)>;

    /// `draftQueuePlugin` gets the runtime's draft queue when that arrives. Uploads go into
    /// `binaryStore`.
    Runtime(std::shared_ptr<tessel::Activity> activity,
            std::shared_ptr<DraftQueuePlugin> draftQueuePlugin,
            std::shared_ptr<BinaryStore> binaryStore, Listener listener);
    ~Runtime();

    /// Runs `work` later, in the order of the calls. Any thread.
    void perform(std::function<void(RuntimeServices&)> work);

    /// Report what the bundle has set. The first runtime with a usable part counts.
    void promised();
    void arrived(RuntimeParts parts);
    void failed(std::string why);

    /// Drops all later work. Calls `quiet` on the services' thread after the earlier work.
    void close(std::function<void()> quiet);

    /// The parts that answer no call; all of them while there is no runtime. Any thread.
    MissingParts missing() const;

  private:
    class Services;
    void post(std::function<void(Services&)> work);

    std::shared_ptr<tessel::Activity> activity;
    platform::RunLoopThread thread;
    std::shared_ptr<Services> services;
};

} // namespace zem::host
