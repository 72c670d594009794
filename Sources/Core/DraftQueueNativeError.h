#pragma once

// Why an operation of a draft queue failed.

#include <zem/Tessel/DecodingError.h>

#include <string>
#include <utility>
#include <variant>

namespace zem {

/// Has no text of its own: what there is to say is in the case.
class DraftQueueNativeError {
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

    static DraftQueueNativeError decodingPromiseError(tessel::DecodingError error) {
        return {DecodingPromiseError{std::move(error)}};
    }
    static DraftQueueNativeError errorEncodingRequest(std::string message) {
        return {ErrorEncodingRequest{std::move(message)}};
    }
    static DraftQueueNativeError promiseRejection(std::string message) {
        return {PromiseRejection{std::move(message)}};
    }

    bool operator==(const DraftQueueNativeError&) const = default;

    std::variant<DecodingPromiseError, ErrorEncodingRequest, PromiseRejection> value;
};

} // namespace zem
