#pragma once

// Why a call of the data service failed.

#include <string>
#include <utility>
#include <variant>

namespace zem {

class DataServiceError {
  public:
    /// The runtime's error, or why the runtime could not be called.
    struct ExecuteAdapter {
        std::string message;
        bool operator==(const ExecuteAdapter&) const = default;
    };
    /// The runtime's error as its JSON text.
    struct ExecuteAdapterJSON {
        std::string message;
        bool operator==(const ExecuteAdapterJSON&) const = default;
    };
    /// A subscription that was silent for too long. It stays open: what comes late is delivered.
    struct ExecuteAdapterTimeout {
        bool operator==(const ExecuteAdapterTimeout&) const = default;
    };
    struct BinaryStoreUnavailable {
        bool operator==(const BinaryStoreUnavailable&) const = default;
    };
    /// An answer without data and without an error that could be read.
    struct Unknown {
        bool operator==(const Unknown&) const = default;
    };

    static DataServiceError executeAdapter(std::string message) {
        return {ExecuteAdapter{std::move(message)}};
    }
    static DataServiceError executeAdapterJSON(std::string message) {
        return {ExecuteAdapterJSON{std::move(message)}};
    }
    static DataServiceError executeAdapterTimeout() { return {ExecuteAdapterTimeout{}}; }
    static DataServiceError binaryStoreUnavailable() { return {BinaryStoreUnavailable{}}; }
    static DataServiceError unknown() { return {Unknown{}}; }

    std::string errorDescription() const;

    bool operator==(const DataServiceError&) const = default;

    std::variant<ExecuteAdapter, ExecuteAdapterJSON, ExecuteAdapterTimeout, BinaryStoreUnavailable,
                 Unknown>
        value;
};

} // namespace zem
