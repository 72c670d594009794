#pragma once

// Brings the rows of a query to JavaScript without building a result set in between. They are
// packed once, on the connection queue, and made engine values chunk by chunk on the callback
// queue, while stepping goes on. Chunks that the engine has no time for yet wait there: stepping
// never waits for JavaScript. At most that is the result once, as text.

#include <zem/Platform/Queue.h>
#include <zem/SqliteStore/SQLiteResultSet.h>
#include <zem/SqliteStore/SQLiteRowSink.h>
#include <zem/Tessel/Callback.h>

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace zem {

class RuntimeRowSink final : public SQLiteRowSink {
  public:
    RuntimeRowSink(std::shared_ptr<platform::Queue> callbackQueue,
                   tessel::Callback<SQLiteResultSet> onResult,
                   tessel::Callback<std::string> onError);
    ~RuntimeRowSink() override;

    void columns(std::vector<std::string> names) override;
    void row(std::span<const SQLiteCell> cells) override;
    void finished() override;
    void failed(const std::string& text) override;

  private:
    class Chunk;
    class Building;

    void send();

    std::shared_ptr<platform::Queue> callbackQueue;
    tessel::Callback<SQLiteResultSet> onResult;
    tessel::Callback<std::string> onError;
    std::shared_ptr<Building> building;
    std::unique_ptr<Chunk> chunk;
};

} // namespace zem
