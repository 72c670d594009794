#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Name.h>
#include <zem/JavaScript/Scope.h>
#include <zem/SqliteStore/Private/RuntimeRowSink.h>

#include <cstdint>
#include <utility>

namespace zem {

namespace {

/// A chunk is sent when it holds this much: large enough that a hop to the engine's thread does not
/// count, small enough that converting one holds other JavaScript up for a millisecond at most.
constexpr std::size_t chunkBytes = 256 * 1024;
constexpr std::size_t chunkCells = 4096;

} // namespace

/// Some rows' cells, packed: texts one after the other, each with a NUL byte behind it.
class RuntimeRowSink::Chunk {
  public:
    void add(const SQLiteCell& cell) {
        if (const auto* text = std::get_if<std::string_view>(&cell)) {
            texts.append(*text);
            texts.push_back('\0');
            cells.push_back({Cell::Kind::text, {.length = text->size()}});
        } else if (const auto* number = std::get_if<double>(&cell)) {
            cells.push_back({Cell::Kind::number, {.number = *number}});
        } else {
            cells.push_back({Cell::Kind::null, {.length = 0}});
        }
    }

    bool isFull() const { return texts.size() >= chunkBytes || cells.size() >= chunkCells; }
    bool isEmpty() const { return cells.empty(); }

    struct Cell {
        enum class Kind : std::uint8_t { text, number, null } kind;
        union {
            std::size_t length;
            double number;
        };
    };
    std::string texts;
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
        (void)scope.set(result, columnsName, tessel::encodeValue(scope, names));
        (void)scope.set(result, rowsName, scope.local(rows(scope)));
        return result;
    }

  private:
    const js::Value& rows(js::Scope& scope) {
        if (!made) {
            made = scope.keep(scope.array());
        }
        return made;
    }

    // Values live on the stack until they are in the row: a few at a time, as the row may be wide.
    static js::Local makeRow(js::Scope& scope, std::span<const Chunk::Cell> cells,
                             const char*& text) {
        constexpr std::size_t most = 16;
        js::Local values[most];
        std::size_t filled = 0;
        std::size_t placed = 0;
        js::Local row;
        const auto place = [&] {
            if (row.get() == nullptr) {
                row = scope.array({values, filled});
            } else {
                for (std::size_t index = 0; index < filled; ++index) {
                    (void)scope.setAt(row, static_cast<unsigned>(placed + index), values[index]);
                }
            }
            placed += filled;
            filled = 0;
        };
        for (const Chunk::Cell& cell : cells) {
            values[filled++] = makeCell(scope, cell, text);
            if (filled == most) {
                place();
            }
        }
        if (filled > 0 || row.get() == nullptr) {
            place();
        }
        return row;
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

RuntimeRowSink::RuntimeRowSink(tessel::Callback<SQLiteResultSet> onResult,
                               tessel::Callback<std::string> onError)
    : onResult(std::move(onResult))
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
    auto full = std::exchange(chunk, std::make_unique<Chunk>());
    onResult.target().context().async([building = building, full = std::move(full)](
                                          js::Scope& scope) { building->append(scope, *full); });
}

void RuntimeRowSink::finished() {
    onResult.target().context().async([onResult = std::move(onResult),
                                       building = std::move(building),
                                       last = std::move(chunk)](js::Scope& scope) {
        building->append(scope, *last);
        const js::Local result = building->resultSet(scope);
        onResult.call(scope, onResult.target(), {&result, 1});
    });
}

void RuntimeRowSink::failed(const std::string& text) {
    onError(text);
}

} // namespace zem
