#pragma once

// The data service, before and after the bundle has set the runtime that it stands on.

#include <zem/Core/DataServiceProtocol.h>
#include <zem/JavaScript/Context.h>
#include <zem/Platform/Mutex.h>
#include <zem/Platform/RunLoop.h>
#include <zem/Tessel/Activity.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace zem::host {

/// Until the runtime arrives everything that is asked for is recorded, and then handed over.
///
/// The services live on a thread of their own, and everything is done there, in order: so nothing
/// is asked of the one after its requests were handed over to the other. The thread's run loop
/// drives the watchdog. It is not the main thread, because handing over waits for JavaScript, which
/// may end the run at that moment (host.exit) and then never comes back; the main thread sees to
/// that end.
class Runtime {
  public:
    /// Called on the services' thread; either may be empty.
    struct Listener {
        /// What was recorded has been handed over.
        std::function<void()> ready;
        /// What was recorded has been dropped, and why.
        std::function<void(const std::string& why)> failed;
    };

    Runtime(std::shared_ptr<tessel::Activity> activity, Listener listener);
    ~Runtime();

    /// Does `work` with the service, in the order of the calls. Any thread, never before returning.
    void perform(std::function<void(DataServiceProtocol&)> work);

    /// What the bundle did. Of several runtimes the first that can be used counts.
    void promised();
    void arrived(js::Value dataService);
    void failed(std::string why);

    /// Nothing is done any more; `quiet` is called on the services' thread when what was asked
    /// before has been.
    void close(std::function<void()> quiet);

    /// Why nothing is answered, or absent when there is a runtime. Any thread.
    std::optional<std::string> whyNotReady() const;

  private:
    class Services;
    void post(std::function<void(Services&)> work);

    std::shared_ptr<tessel::Activity> activity;
    platform::RunLoopThread thread;
    std::shared_ptr<Services> services;
};

} // namespace zem::host
