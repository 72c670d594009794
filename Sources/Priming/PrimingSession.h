#pragma once

// Priming: having the runtime fetch records ahead of need, so that they are in the store when there
// is no network.

#include <zem/Platform/Future.h>
#include <zem/Tessel/Coding.h>

#include <boost/describe.hpp>

#include <array>
#include <expected>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zem {

/// The records to fetch of one object type, and the fields of each.
struct RecordIdsAndFields {
    std::vector<std::string> ids;
    std::vector<std::string> fields;

    bool operator==(const RecordIdsAndFields&) const = default;
};
BOOST_DESCRIBE_STRUCT(RecordIdsAndFields, (), (ids, fields))

struct PrimingError {
    enum class ErrorCode { notFound, preconditionError, serviceUnavailable, canceled, unknown };

    ErrorCode code = ErrorCode::unknown;
    std::string message;          ///< for people
    std::vector<std::string> ids; ///< the records concerned

    bool operator==(const PrimingError&) const = default;
};
BOOST_DESCRIBE_STRUCT(PrimingError, (), (code, message, ids))

inline constexpr std::array<std::pair<PrimingError::ErrorCode, std::string_view>, 5>
    primingErrorCodeTexts{{
        {PrimingError::ErrorCode::notFound, "not-found"},
        {PrimingError::ErrorCode::preconditionError, "precondition-error"},
        {PrimingError::ErrorCode::serviceUnavailable, "service-unavailable"},
        {PrimingError::ErrorCode::canceled, "canceled"},
        {PrimingError::ErrorCode::unknown, "unknown"},
    }};

/// Hears what becomes of a session's work. Implemented by the application. Both functions are
/// called any number of times, on threads of the global queue, several at once and in no order
/// among them, with no lock held. They throw nothing.
class PrimingEventHandler {
  public:
    virtual ~PrimingEventHandler() = default;

    /// These records are in the store now.
    virtual void onPrimed(std::vector<std::string> ids) = 0;
    virtual void onError(PrimingError error) = 0;
};

struct PrimingSessionConfig {
    /// Null if nobody wants to hear. The runtime keeps it for as long as it keeps the session's
    /// configuration: a handler that holds its own session strongly may keep both for ever.
    std::shared_ptr<PrimingEventHandler> eventHandler;
};

/// Work for the runtime. Thread-safe; calls reach the runtime in their order. Destroying a session
/// lets go of the runtime's object and cancels nothing.
class PrimingSession {
  public:
    using Outcome = std::expected<void, PrimingError>;
    /// By the names of object types.
    using Work = std::map<std::string, RecordIdsAndFields>;

    virtual ~PrimingSession() = default;

    /// Each returns at once, with a future for `co_await`, `then` and `wait`. It is completed on a
    /// thread of the global queue when the runtime has taken the call; what comes of the work is
    /// told to the event handler.
    virtual platform::Future<Outcome> enqueue(Work work) = 0;
    virtual platform::Future<Outcome> cancel() = 0;

    /// The same, with a callback in the place of the future: called once, on a thread of the global
    /// queue. It throws nothing.
    void enqueue(Work work, std::function<void(Outcome)> callback);
    void cancel(std::function<void(Outcome)> callback);
};

class PrimingService {
  public:
    using Outcome = std::expected<std::shared_ptr<PrimingSession>, PrimingError>;

    virtual ~PrimingService() = default;

    /// Returns at once. The future is completed on a thread of the global queue.
    virtual platform::Future<Outcome> createPrimingSession(PrimingSessionConfig config) = 0;

    /// The same with a callback, called once, on a thread of the global queue. It throws nothing.
    void createPrimingSession(PrimingSessionConfig config, std::function<void(Outcome)> callback);
};

} // namespace zem

namespace tessel {

template <>
struct RawTexts<zem::PrimingError::ErrorCode> {
    static constexpr auto& table = zem::primingErrorCodeTexts;
};

/// Reads every other text as `unknown`: runtimes may know more codes than their host.
template <>
struct Coding<zem::PrimingError::ErrorCode> {
    static constexpr std::string_view expected = Coding<std::string>::expected;

    template <class D>
    static Decoded<zem::PrimingError::ErrorCode> decode(const D& value) {
        using Code = zem::PrimingError::ErrorCode;
        const auto text = tessel::decode<std::string>(value);
        if (!text) {
            return std::unexpected(text.error());
        }
        return fromRawText<Code>(*text).value_or(Code::unknown);
    }

    template <class E>
    static typename E::Output encode(E& encoder, zem::PrimingError::ErrorCode value) {
        return encoder.text(rawText(value));
    }
};

} // namespace tessel
