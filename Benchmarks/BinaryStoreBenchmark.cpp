// A blob of 100 MB in the encrypted binary store: the time beside raw SQLCipher calls that write
// the same bytes, and the peak memory of a process that stores or reads it beside one that has the
// bytes and an open store.

#include "Measure.h"
#include "PeakMemory.h"
#include "StoreSubjects.h"
#include <zem/Adapters/EncryptedBinaryStore.h>

namespace {

constexpr std::size_t blobLength = 100'000'000;
/// The bytes in each row that the floor writes. One row of all bytes takes longer.
constexpr std::size_t pieceLength = 1 << 20;

zem::platform::Bytes makeBytes() {
    zem::platform::Bytes bytes(blobLength);
    std::uint32_t state = 1;
    for (std::uint8_t& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    return bytes;
}

std::shared_ptr<zem::EncryptedBinaryStore> open(const std::filesystem::path& folder) {
    return zem::EncryptedBinaryStore::create({folder, bench::encryption()});
}

std::string keep(zem::EncryptedBinaryStore& store, const zem::platform::Bytes& bytes) {
    return store.store(bytes, "application/octet-stream", bytes.size());
}

void measureMemory() {
    const auto floor = [] {
        const bench::Folder folder;
        return bench::peakOf([&] {
            const zem::platform::Bytes bytes = makeBytes();
            keep(*open(folder.path), {1});
        });
    };
    bench::report(bench::measure(
        {"binary.memory.store", "MiB", 2},
        [] {
            const bench::Folder folder;
            return bench::peakOf([&] { keep(*open(folder.path), makeBytes()); });
        },
        floor, 3));

    const bench::Folder folder;
    bench::peakOf([&] { keep(*open(folder.path), makeBytes()); });
    bench::report(bench::measure(
        {"binary.memory.read", "MiB", 2},
        [&] {
            return bench::peakOf([&] {
                const auto store = open(folder.path);
                const auto bytes = store->cachedData(store->blobs().value().at(0).handle);
                if (bytes.value().size() != blobLength) {
                    throw std::runtime_error("something else was read");
                }
            });
        },
        floor, 3));
}

bench::Result measureStoring() {
    const zem::platform::Bytes bytes = makeBytes();
    const auto work = [&] {
        const bench::Folder folder;
        const auto store = open(folder.path);
        return bench::milliseconds([&] { keep(*store, bytes); });
    };
    const auto floor = [&] {
        const bench::Folder folder;
        bench::RawDatabase database(folder.path / "binaries.db");
        database.run("create table pieces (bytes blob)");
        return bench::milliseconds([&] { database.insertPieces(bytes, pieceLength); });
    };
    return bench::measure({"binary.store", "ms", 1.3}, work, floor, 11);
}

} // namespace

int main() {
    measureMemory(); // first: the processes that it makes begin with what this one has
    bench::report(measureStoring());
}
