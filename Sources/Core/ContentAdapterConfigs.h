#pragma once

// Uploads of files as content documents and versions: what the caller asks for, what the runtime is
// told, and the record of one that waits for the runtime.

#include <zem/Core/DataServiceResult.h>
#include <zem/Platform/Bytes.h>
#include <zem/Tessel/Coding.h>

#include <boost/describe.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace zem {

/// A new document with its first version.
struct CreateContentDocumentAndVersionConfig {
    std::string title;
    std::string description;
    platform::Bytes fileData;
    std::optional<std::string> fileName; ///< the title when absent
    std::optional<std::string> mimeType; ///< "application/octet-stream" when absent

    bool operator==(const CreateContentDocumentAndVersionConfig&) const = default;
};

/// A new version of an existing document.
struct CreateContentVersionConfig {
    std::string title;
    std::string description;
    std::string contentDocumentId;
    platform::Bytes fileData;
    std::optional<std::string> fileName; ///< the title when absent
    std::optional<std::string> mimeType; ///< "application/octet-stream" when absent

    bool operator==(const CreateContentVersionConfig&) const = default;
};

/// The file as the runtime sees it: by its handle in the binary store, never by its bytes.
struct FileData {
    std::optional<std::string> handle;
    std::string name;
    bool isFileReference = true;
    std::int64_t size = 0; ///< bytes
    std::string type;

    bool operator==(const FileData&) const = default;
};
BOOST_DESCRIBE_STRUCT(FileData, (), (handle, name, isFileReference, size, type))

/// The configuration that the runtime's adapter gets, as JSON.
struct ZEMContentVersionConfig {
    std::string title;
    std::string description;
    std::optional<std::string> contentDocumentId;
    FileData fileData;

    bool operator==(const ZEMContentVersionConfig&) const = default;
};
BOOST_DESCRIBE_STRUCT(ZEMContentVersionConfig, (),
                      (title, description, contentDocumentId, fileData))

using ContentVersionOperationType =
    std::variant<CreateContentDocumentAndVersionConfig, CreateContentVersionConfig>;

/// An upload that was asked for before there was a runtime. Compared by identity.
struct ContentVersionOperation {
    ContentVersionOperationType operation;
    std::optional<Metadata> metadata;
    ResultCallback callback;
};

} // namespace zem
