#pragma once

// Why an operation of a draft manager failed.

#include <zem/Tessel/DecodingError.h>

#include <string>
#include <utility>
#include <variant>

namespace zem {

/// Has no text of its own: what there is to say is in the case.
class DraftManagerNativeError {
  public:
    /// The promise was fulfilled with something else than was expected.
    struct DecodingPromiseError {
        tessel::DecodingError error;
        bool operator==(const DecodingPromiseError&) const = default;
    };
    /// Reserved: encoding a request cannot fail.
    struct ErrorEncodingRequest {
        std::string message;
        bool operator==(const ErrorEncodingRequest&) const = default;
    };
    /// The runtime rejected the promise.
    struct PromiseRejection {
        std::string message;
        bool operator==(const PromiseRejection&) const = default;
    };
    /// It failed on this side of the bridge.
    struct UnknownError {
        std::string message;
        bool operator==(const UnknownError&) const = default;
    };

    static DraftManagerNativeError decodingPromiseError(tessel::DecodingError error) {
        return {DecodingPromiseError{std::move(error)}};
    }
    static DraftManagerNativeError errorEncodingRequest(std::string message) {
        return {ErrorEncodingRequest{std::move(message)}};
    }
    static DraftManagerNativeError promiseRejection(std::string message) {
        return {PromiseRejection{std::move(message)}};
    }
    static DraftManagerNativeError unknownError(std::string message) {
        return {UnknownError{std::move(message)}};
    }

    bool operator==(const DraftManagerNativeError&) const = default;

    std::variant<DecodingPromiseError, ErrorEncodingRequest, PromiseRejection, UnknownError> value;
};

} // namespace zem
