#include "BinaryCommands.h"

#include "BinariesTable.h"
#include "Process/File.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>

namespace zem::host {

namespace {

std::vector<EncryptedBinaryStore::Blob> blobsOf(EncryptedBinaryStore& store) {
    auto blobs = store.blobs();
    if (!blobs) {
        throw CommandFailure(fmt::format("the binaries cannot be read: {}", blobs.error()));
    }
    return *std::move(blobs);
}

platform::Bytes bytesOf(EncryptedBinaryStore& store, const std::string& handle) {
    auto bytes = store.cachedData(handle);
    if (bytes) {
        return *std::move(bytes);
    }
    const auto blobs = blobsOf(store);
    const bool isThere =
        std::ranges::find(blobs, handle, &EncryptedBinaryStore::Blob::handle) != blobs.end();
    throw CommandFailure(isThere ? fmt::format("the binary \"{}\" cannot be read", handle)
                                 : fmt::format("there is no binary \"{}\"", handle));
}

} // namespace

void listBinaries(CommandContext& context, const CommandWords&, const CommandOrigin& origin) {
    const auto blobs = blobsOf(context.binaryStore());
    context.report.data(origin, "binary list", {describe(blobs), tessel::toText(toAny(blobs))});
}

void saveBinary(CommandContext& context, const CommandWords& words, const CommandOrigin& origin) {
    const platform::Bytes bytes = bytesOf(context.binaryStore(), words["HANDLE"]);
    try {
        writeFile(words["FILE"], bytes);
    } catch (const Failure& failure) {
        throw CommandFailure(failure.what());
    }
    context.report.data(origin, "binary save",
                        {fmt::format("{} bytes", bytes.size()), fmt::format("{}", bytes.size())});
}

void switchNetwork(CommandContext& context, const CommandWords& words, const CommandOrigin&) {
    try {
        context.network().setOnline(words["SWITCH"] == "on");
    } catch (const std::runtime_error& error) {
        throw CommandFailure(fmt::format("the network cannot be switched on: {}", error.what()));
    }
}

} // namespace zem::host
