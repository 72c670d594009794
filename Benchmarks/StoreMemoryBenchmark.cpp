// The peak resident memory of a process whose JavaScript reads 300,000 rows, beside the bytes of
// their text. Each reading is a process of its own, so that nothing before it counts; the rows are
// written by another one.

#include "Measure.h"
#include "StoreSubjects.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int rowCount = 300'000;
constexpr int rowsInBatch = 20'000;
constexpr double mebibyte = 1024.0 * 1024.0;

/// Runs `body` in a process of its own; its peak resident memory in MiB.
template <class Body>
double peakOf(Body&& body) {
    const pid_t child = fork();
    if (child == 0) {
        try {
            body();
            std::_Exit(0);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s\n", error.what());
            std::_Exit(1);
        }
    }
    int status = 0;
    rusage usage{};
    while (wait4(child, &status, 0, &usage) < 0) {
        if (errno != EINTR) {
            throw std::runtime_error(std::strerror(errno));
        }
    }
    if (status != 0) {
        throw std::runtime_error("the process that was measured failed");
    }
    return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

void write(const std::filesystem::path& folder) {
    bench::Runtime runtime(bench::openStore(folder));
    runtime.evaluate(bench::script);
    for (int first = 0; first < rowCount; first += rowsInBatch) {
        runtime.evaluate(fmt::format("make({}, {})", first, rowsInBatch));
        runtime.milliseconds("upsert()");
    }
}

void read(const std::filesystem::path& folder) {
    bench::Runtime runtime(bench::openStore(folder));
    runtime.evaluate(bench::script);
    runtime.milliseconds(fmt::format("query({})", rowCount));
}

double textBytes() {
    std::size_t bytes = 0;
    for (int number = 0; number < rowCount; ++number) {
        const bench::Row row(number);
        bytes += row.key.size() + row.data.size() + row.metadata.size();
    }
    return static_cast<double>(bytes);
}

} // namespace

int main() {
    const bench::Folder folder;
    peakOf([&] { write(folder.path); });
    const double floor = textBytes() / mebibyte;
    bench::report(bench::measure(
        {"store.memory", "MiB", 4}, [&] { return peakOf([&] { read(folder.path); }); },
        [&] { return floor; }, 3));
}
