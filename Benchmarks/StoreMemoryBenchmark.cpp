// The peak resident memory of a process whose JavaScript reads 300,000 rows, beside the bytes of
// their text. Each reading is a process of its own, so that nothing before it counts; the rows are
// written by another one.

#include "Measure.h"
#include "PeakMemory.h"
#include "StoreSubjects.h"

namespace {

constexpr int rowCount = 300'000;
constexpr int rowsInBatch = 20'000;

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
    bench::peakOf([&] { write(folder.path); });
    const double floor = textBytes() / bench::mebibyte;
    bench::report(bench::measure(
        {"store.memory", "MiB", 4}, [&] { return bench::peakOf([&] { read(folder.path); }); },
        [&] { return floor; }, 3));
}
