#include "BinariesTable.h"

#include "Process/ByteCount.h"
#include "Table.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <chrono>
#include <utility>

namespace zem::host {

namespace {

using Blob = EncryptedBinaryStore::Blob;

const TableRow heading{"HANDLE", "TYPE", "SIZE", "KIND", "EXPIRY", "URLS"};

const char* textOf(Blob::Kind kind) {
    return kind == Blob::Kind::stored ? "stored" : "cached";
}

/// "2026-11-22T10:20:30Z"
std::string textOf(EncryptedBinaryStore::Time time) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(time.time_since_epoch());
    return fmt::format("{:%Y-%m-%dT%H:%M:%SZ}", fmt::gmtime(seconds.count()));
}

TableRow rowOf(const Blob& blob) {
    return {blob.handle,
            blob.type,
            describeByteCount(blob.size),
            textOf(blob.kind),
            blob.expiry ? textOf(*blob.expiry) : "",
            fmt::format("{}", fmt::join(blob.canonicalUrls, " "))};
}

tessel::Any toAny(const Blob& blob) {
    return boost::json::object{
        {"handle", blob.handle},
        {"type", blob.type},
        {"size", blob.size},
        {"kind", textOf(blob.kind)},
        {"expiry", blob.expiry ? tessel::Any(blob.expiry->time_since_epoch().count()) : nullptr},
        {"canonicalUrls", tessel::toAny(blob.canonicalUrls)}};
}

} // namespace

std::string describe(const std::vector<Blob>& blobs) {
    if (blobs.empty()) {
        return "no binaries";
    }
    std::vector<TableRow> rows{heading};
    for (const Blob& blob : blobs) {
        rows.push_back(rowOf(blob));
    }
    return fmt::format("{} {}{}", blobs.size(), blobs.size() == 1 ? "binary" : "binaries",
                       describeTable(std::move(rows)));
}

tessel::Any toAny(const std::vector<Blob>& blobs) {
    boost::json::array rows;
    for (const Blob& blob : blobs) {
        rows.push_back(toAny(blob));
    }
    return rows;
}

} // namespace zem::host
