#pragma once

// The binary store's blobs, as the commands print them.

#include <zem/Adapters/EncryptedBinaryStore.h>
#include <zem/Tessel/JSON.h>

#include <string>
#include <vector>

namespace zem::host {

/// How many there are, and a row for each.
std::string describe(const std::vector<EncryptedBinaryStore::Blob>& blobs);

/// [{"handle":"...","type":"...","size":1,"kind":"cached","expiry":1,"canonicalUrls":["..."]}]; the
/// size in bytes, the expiry in milliseconds since 1970, null if there is none.
tessel::Any toAny(const std::vector<EncryptedBinaryStore::Blob>& blobs);

} // namespace zem::host
