#pragma once

// A store as JavaScript sees it: a context with the plugin, and a way to run an asynchronous script
// to its end.

#include <zem/JavaScript/Context.h>
#include <zem/Tessel/Connection.h>

#include <SqliteStore/Store.h>
#include <Support/Engine.h>
#include <Support/Wait.h>
#include <memory>
#include <string>
#include <string_view>

namespace test {

class StoreRuntime {
  public:
    explicit StoreRuntime(std::shared_ptr<zem::SQLiteStore> opened = memoryStore(),
                          zem::js::Context entered = makeContext())
        : context(std::move(entered))
        , store(std::move(opened)) {
        connection.add(*store);
        context.setUncaughtHandler([this](zem::js::Scope&, const zem::js::Exception& exception) {
            uncaught.add(exception.text());
        });
        setFunction(context, "done", 1,
                    [this](zem::js::Scope& scope, zem::js::Local,
                           zem::js::Arguments arguments) -> zem::js::Result<zem::js::Local> {
                        heard->put(scope.toText(arguments[0]));
                        return scope.undefined();
                    });
        evaluate(context, R"(
            const query = (sql, params = []) => new Promise((resolve, reject) =>
                ZemSqliteStore.query(sql, params, resolve, reject));
            const write = (...operations) => new Promise((resolve) =>
                ZemSqliteStore.batchOperations(operations, resolve));
            const value = async (sql, params) => (await query(sql, params)).rows[0][0];
            const upsert = (rows, context = {}) => ({
                type: "upsert", table: "zem_data", keyColumn: "key", conflictColumns: ["key"],
                columns: ["key", "data", "metadata"], rows, context });
            const remove = (ids, context = {}) => ({
                type: "delete", table: "zem_data", keyColumn: "key", ids, context });
            const thrown = (body) => {
                try { body(); } catch (error) { return String(error); }
                return "nothing was thrown";
            };
            const nothing = () => {};
        )");
    }

    /// Runs `body` as the body of an async function and gives what it returns as JSON text, or
    /// "rejected: " and what it threw.
    std::string run(std::string_view body) {
        heard = std::make_shared<Arrival<std::string>>("the end of a script");
        evaluate(context, "(async () => {" + std::string(body) +
                              "})().then((answer) => done(JSON.stringify(answer) ?? \"undefined\"),"
                              " (error) => done(\"rejected: \" + error))");
        return heard->get();
    }

    /// Whether writing, reading and deleting still work.
    bool works() {
        return run(R"js(
                   const failure = await write(upsert([["works", "{}", null]]));
                   const found = await value("select count(*) from zem_data where key = 'works'");
                   await write(remove(["works"]));
                   return [failure, found];
               )js") == "[null,1]";
    }

    zem::js::Context context;
    tessel::Connection connection{context};
    std::shared_ptr<zem::SQLiteStore> store;
    Transcript uncaught;

  private:
    std::shared_ptr<Arrival<std::string>> heard;
};

} // namespace test
