#include <zem/SqliteStore/SQLiteStore.h>
#include <zem/Tessel/Connection.h>

#include <cstdio>
#include <future>

int main() {
    const auto store = zem::SQLiteStore::create(
        {"zem-data", zem::SQLiteStore::EncryptionOption::internalKeyAndSalt()});
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
}
