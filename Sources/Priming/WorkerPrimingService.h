#pragma once

// Priming by the runtime's "zemWorkerApi".

#include <zem/JavaScript/Scope.h>
#include <zem/JavaScript/Value.h>
#include <zem/Priming/PrimingSession.h>

#include <memory>

namespace zem {

/// Sessions are made by the runtime's function "createPrimingSession".
class WorkerPrimingService final : public PrimingService {
  public:
    /// `value` has the object "zemWorkerApi", and that has the function. Null if either is missing
    /// or cannot be read, if `value` holds nothing, and if the context's thread has ended. Enters
    /// the engine.
    static std::shared_ptr<WorkerPrimingService> create(const js::Value& value);

    using PrimingService::createPrimingSession;
    /// Calls the runtime in the context's lane. Where it returns no object or throws, and where the
    /// context's thread has ended, the outcome is `unknown` with "Unable to create priming
    /// session". What it throws goes to the context's uncaught handler.
    platform::Future<Outcome> createPrimingSession(PrimingSessionConfig config) override;

  private:
    explicit WorkerPrimingService(js::Value primingSessionFactory);

    const js::Value primingSessionFactory;
};

/// Calls the methods "enqueue" and "cancel" of the runtime's object, in the context's lane, and
/// never fails: what they return is not looked at, and what they throw goes to the context's
/// uncaught handler.
class WorkerPrimingSession final : public PrimingSession {
  public:
    explicit WorkerPrimingSession(js::Value api);

    using PrimingSession::cancel;
    using PrimingSession::enqueue;
    platform::Future<Outcome> enqueue(Work work) override;
    platform::Future<Outcome> cancel() override;

  private:
    const js::Value api;
};

} // namespace zem
