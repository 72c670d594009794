// The store from JavaScript beside raw SQLCipher calls: writing, reading, single reads, opening.

#include "Measure.h"
#include "StoreSubjects.h"

namespace {

constexpr int rowCount = 20'000;

bench::Result measureUpsert(const std::vector<bench::Row>& rows) {
    const auto work = [] {
        const bench::Folder folder;
        bench::Runtime runtime(bench::openStore(folder.path));
        runtime.evaluate(bench::script);
        runtime.evaluate(fmt::format("make(0, {})", rowCount));
        return runtime.milliseconds("upsert()");
    };
    const auto floor = [&] {
        const bench::Folder folder;
        bench::RawDatabase database(folder.path / "zem.db");
        database.migrate();
        return bench::milliseconds([&] { database.upsert(rows); });
    };
    return bench::measure({"store.upsert", "ms", 1.35}, work, floor);
}

void measureReading(const std::vector<bench::Row>& rows) {
    const bench::Folder folder;
    const bench::Folder floorFolder;
    bench::RawDatabase database(floorFolder.path / "zem.db");
    database.migrate();
    database.upsert(rows);
    bench::Runtime runtime(bench::openStore(folder.path));
    runtime.evaluate(bench::script);
    runtime.evaluate(fmt::format("make(0, {})", rowCount));
    runtime.milliseconds("upsert()");

    bench::report(bench::measure(
        {"store.query", "ms", 1.8},
        [&] {
            runtime.collectGarbage();
            return runtime.milliseconds(fmt::format("query({})", rowCount));
        },
        [&] {
            return bench::milliseconds([&] {
                if (database.copyAll().size() != rows.size() * 3) {
                    throw std::runtime_error("the floor read something else");
                }
            });
        }));

    bench::report(bench::measure(
        {"store.query.point", "ms", 4}, [&] { return runtime.milliseconds("points(64)"); },
        [&] {
            return bench::milliseconds([&] {
                for (const bench::Row& row : rows) {
                    if (database.read(row.key) != row.data) {
                        throw std::runtime_error("the floor read something else");
                    }
                }
            });
        }));
}

/// Each batch is one row, and is synced to the disk before the next one begins. All are asked for
/// at once: waiting for each answer would measure the machine's threads instead of the store.
bench::Result measureDurableBatches() {
    static constexpr int batches = 200;
    const std::vector<bench::Row> rows = bench::makeRows(batches);
    const auto work = [] {
        const bench::Folder folder;
        bench::Runtime runtime(bench::openStore(folder.path, zem::SQLiteStore::Synchronous::full));
        runtime.evaluate(bench::script);
        runtime.evaluate(fmt::format("make(0, {})", batches));
        return runtime.milliseconds("upsertOneByOne()");
    };
    const auto floor = [&] {
        const bench::Folder folder;
        bench::RawDatabase database(folder.path / "zem.db");
        database.migrate();
        database.run("PRAGMA synchronous = FULL");
        return bench::milliseconds([&] {
            for (const bench::Row& row : rows) {
                database.upsert({row});
            }
        });
    };
    return bench::measure({"store.batch.durable", "ms", 1.3}, work, floor);
}

bench::Result measureOpening() {
    const bench::Folder folder;
    {
        const auto store = bench::openStore(folder.path);
    }
    return bench::measure(
        {"store.open", "ms", 1.1},
        [&] { return bench::milliseconds([&] { (void)bench::openStore(folder.path); }); },
        [&] { return bench::milliseconds([&] { bench::RawDatabase(folder.path / "zem.db"); }); },
        31);
}

} // namespace

int main() {
    const std::vector<bench::Row> rows = bench::makeRows(rowCount);
    bench::report(measureUpsert(rows));
    measureReading(rows);
    bench::report(measureDurableBatches());
    bench::report(measureOpening());
}
