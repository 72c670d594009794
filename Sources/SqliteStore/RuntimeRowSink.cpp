#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Name.h>
#include <zem/JavaScript/Scope.h>
#include <zem/Platform/Bytes.h>
#include <zem/SqliteStore/Private/RuntimeRowSink.h>

#include <array>
#include <cstdint>
#include <utility>

namespace zem {

namespace {

/// A chunk is sent when it holds this much: large enough that a hop to the engine's thread does not
/// count, small enough that converting one holds other JavaScript up for a millisecond at most.
constexpr std::size_t chunkBytes = 256 * 1024;
constexpr std::size_t chunkCells = 4096;

} // namespace

/// Some rows' cells, packed: texts one after the other, each with a NUL byte behind it, in memory
/// that is wiped.
class RuntimeRowSink::Chunk {
  public:
    void add(const SQLiteCell& cell) {
        if (const auto* text = std::get_if<std::string_view>(&cell)) {
            texts.insert(texts.end(), text->begin(), text->end());
            texts.push_back('\0');
            cells.push_back({Cell::Kind::text, {.length = text->size()}});
        } else if (const auto* number = std::get_if<double>(&cell)) {
            cells.push_back({Cell::Kind::number, {.number = *number}});
        } else {
            cells.push_back({Cell::Kind::null, {.length = 0}});
        }
    }

    bool isFull() const { return texts.size() >= chunkBytes || cells.size() >= chunkCells; }

    struct Cell {
        enum class Kind : std::uint8_t { text, number, null } kind;
        union {
            std::size_t length;
            double number;
        };
    };
    std::vector<char, platform::WipingAllocator<char>> texts;
    std::vector<Cell> cells;
};

/// The array of rows that grows in the engine. Used inside it only, by one piece of work after the
/// other.
class RuntimeRowSink::Building {
  public:
    explicit Building(std::vector<std::string> columnNames)
        : names(std::move(columnNames)) {}

    void append(js::Scope& scope, const Chunk& next) {
        const js::Sequence sequence(scope);
        const js::Local array = scope.local(rows(scope));
        const char* text = next.texts.data();
        for (std::size_t first = 0; first < next.cells.size(); first += names.size()) {
            const js::Local row = makeRow(scope, {&next.cells[first], names.size()}, text);
            (void)scope.setAt(array, count++, row);
        }
    }

    js::Local resultSet(js::Scope& scope) {
        static const js::Name columnsName("columns");
        static const js::Name rowsName("rows");
        const js::Local result = scope.object();
        const js::Local array = scope.local(rows(scope));
        scope.setPrototype(array, scope.prototype(scope.array()));
        (void)scope.define(result, columnsName, tessel::encodeValue(scope, names));
        (void)scope.define(result, rowsName, array);
        return result;
    }

  private:
    // Without a prototype until it is whole: what is set becomes its own.
    const js::Value& rows(js::Scope& scope) {
        if (!made) {
            const js::Local array = scope.array();
            scope.setPrototype(array, scope.null());
            made = scope.keep(array);
        }
        return made;
    }

    static js::Local makeRow(js::Scope& scope, std::span<const Chunk::Cell> cells,
                             const char*& text) {
        js::ArrayMaker row(scope);
        for (const Chunk::Cell& cell : cells) {
            row.add(makeCell(scope, cell, text));
        }
        return row.finish();
    }

    static js::Local makeCell(js::Scope& scope, const Chunk::Cell& cell, const char*& text) {
        switch (cell.kind) {
        case Chunk::Cell::Kind::text: {
            const js::Local value = scope.stringTerminated(text, cell.length);
            text += cell.length + 1;
            return value;
        }
        case Chunk::Cell::Kind::number:
            return scope.number(cell.number);
        case Chunk::Cell::Kind::null:
            break;
        }
        return scope.null();
    }

    std::vector<std::string> names;
    js::Value made;
    unsigned count = 0;
};

RuntimeRowSink::RuntimeRowSink(std::shared_ptr<platform::Queue> callbackQueue,
                               tessel::Callback<SQLiteResultSet> onResult,
                               tessel::Callback<std::string> onError)
    : callbackQueue(std::move(callbackQueue))
    , onResult(std::move(onResult))
    , onError(std::move(onError)) {}

RuntimeRowSink::~RuntimeRowSink() = default;

void RuntimeRowSink::columns(std::vector<std::string> names) {
    building = std::make_shared<Building>(std::move(names));
    chunk = std::make_unique<Chunk>();
}

void RuntimeRowSink::row(std::span<const SQLiteCell> cells) {
    for (const SQLiteCell& cell : cells) {
        chunk->add(cell);
    }
    if (chunk->isFull()) {
        send();
    }
}

void RuntimeRowSink::send() {
    callbackQueue->async([context = onResult.target().context(), building = building,
                          full = std::exchange(chunk, std::make_unique<Chunk>())]() mutable {
        context.async([building = std::move(building), full = std::move(full)](js::Scope& scope) {
            building->append(scope, *full);
        });
    });
}

// The call takes everything with it that lives in the engine, the function that is not called too.

void RuntimeRowSink::finished() {
    std::move(onResult).callWith([uncalled = std::move(onError), building = std::move(building),
                                  last = std::move(chunk)](js::Scope& scope) {
        building->append(scope, *last);
        return std::array{building->resultSet(scope)};
    });
}

void RuntimeRowSink::failed(const std::string& text) {
    std::move(onError).callWith(
        [uncalled = std::move(onResult), building = std::move(building), text](js::Scope& scope) {
            return std::array{scope.string(text)};
        });
}

} // namespace zem
