#include <zem/SqliteStore/SQLiteStore.h>
#include <zem/Tessel/Connection.h>

#include <cstdio>
#include <exception>
#include <future>

int main() try {
    const auto store =
        zem::SQLiteStore::create({"zem-data", zem::SQLiteStore::EncryptionOption::kept()});
    const zem::platform::RunLoopThread thread("javascript");
    const auto context = zem::js::Context::create(thread.runLoop());
    tessel::Connection connection(context);
    connection.add(*store); // JavaScript finds it as ZemSqliteStore

    std::promise<double> count;
    store->query(
        "select count(*) from zem_data", {},
        [&](const zem::SQLiteResultSet& found) { count.set_value(*found.rows[0][0].number()); },
        [&](const std::string&) { count.set_value(-1); });
    std::printf("%g entries\n", count.get_future().get());
} catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
