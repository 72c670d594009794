#pragma once

// The binaries that are kept, and how their file is opened.

#include <zem/Adapters/EncryptedBinaryStore.h>

#include <SqliteStore/Store.h>

namespace test {

/// More than SQLite's page cache holds, so that pages go to the disk before the transaction ends.
inline zem::platform::Bytes largeBinary() {
    zem::platform::Bytes bytes(3 << 20);
    for (std::size_t index = 0; index < bytes.size(); ++index) {
        bytes[index] = static_cast<std::uint8_t>(index * 31 + index / 251);
    }
    return bytes;
}

inline zem::platform::Bytes smallBinary() {
    return zem::platform::Bytes(1000, 7);
}

inline zem::EncryptedBinaryStore::Options binariesIn(const std::filesystem::path& folder) {
    return {folder, keyAndSalt()};
}

} // namespace test
