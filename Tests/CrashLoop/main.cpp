// Kills a process that writes batches, again and again, and looks at what is left: every batch
// whose completion was heard is there whole, and of the others there is none by half.
//
//     zem-crash-loop CYCLES [SEED]
//
// The writer is this same program. It tells of each completion through a pipe; the killer waits for
// a random number of them and a random moment more.

#include <zem/SqliteStore/SQLiteStore.h>

#include <fmt/format.h>

#include <SqliteStore/Store.h>
#include <Support/TemporaryFolder.h>
#include <Support/Wait.h>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <random>
#include <spawn.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

extern char** environ;

namespace {

constexpr int rowsInBatch = 24;
constexpr int mostHeard = 12;
constexpr int mostMicroseconds = 4000;

/// The key as it is, which spares its derivation at each of the many openings.
constexpr std::string_view rawKey =
    "x'00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff'";

std::shared_ptr<zem::SQLiteStore> open(const std::filesystem::path& folder) {
    return zem::SQLiteStore::create({folder, test::keyAndSalt(rawKey, test::storeSalt)});
}

/// Every row of a batch says which it is; the first row is the same in all, so that each batch also
/// changes what the one before it wrote.
zem::SQLiteUpsert makeBatch(std::int64_t number) {
    std::vector<std::vector<zem::SQLiteValue>> rows{{"last", std::to_string(number), nullptr}};
    for (int row = 0; row < rowsInBatch; ++row) {
        rows.push_back({fmt::format("batch {} row {}", number, row), std::to_string(number),
                        std::string(200, 'x')});
    }
    return test::upsert(std::move(rows));
}

[[noreturn]] void writeForEver(const std::filesystem::path& folder, std::int64_t first) {
    const auto store = open(folder);
    for (std::int64_t number = first;; ++number) {
        if (const auto failure = test::batch(*store, {makeBatch(number)})) {
            std::fprintf(stderr, "a batch failed: %s\n", failure->c_str());
            std::_Exit(1);
        }
        if (write(STDOUT_FILENO, &number, sizeof number) != sizeof number) {
            std::_Exit(1);
        }
    }
}

class Writer {
  public:
    Writer(const std::filesystem::path& folder, std::int64_t first) {
        int ends[2];
        if (pipe2(ends, O_CLOEXEC) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
        std::string self = "/proc/self/exe";
        std::string mode = "--write";
        std::string where = folder.string();
        std::string number = std::to_string(first);
        char* words[] = {self.data(), mode.data(), where.data(), number.data(), nullptr};
        const int failure = posix_spawn(&process, self.c_str(), &actions, nullptr, words, environ);
        posix_spawn_file_actions_destroy(&actions);
        close(ends[1]);
        completions = ends[0];
        if (failure != 0) {
            throw std::system_error(failure, std::generic_category(), "posix_spawn");
        }
    }
    ~Writer() { close(completions); }
    Writer(const Writer&) = delete;
    Writer& operator=(const Writer&) = delete;

    /// The number of the next batch whose completion was heard; nothing when the writer has ended
    /// and all it said was read.
    std::optional<std::int64_t> next() {
        std::int64_t number = 0;
        while (true) {
            const ssize_t got = read(completions, &number, sizeof number);
            if (got == sizeof number) {
                return number;
            }
            if (got == 0) {
                return std::nullopt;
            }
            if (got > 0 || errno != EINTR) {
                throw std::runtime_error("the writer's pipe broke");
            }
        }
    }

    void kill() {
        ::kill(process, SIGKILL);
        int status = 0;
        while (waitpid(process, &status, 0) < 0) {
            if (errno != EINTR) {
                throw std::system_error(errno, std::generic_category(), "waitpid");
            }
        }
        if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGKILL) {
            throw std::runtime_error("the writer ended by itself");
        }
    }

  private:
    pid_t process = -1;
    int completions = -1;
};

void spinFor(std::chrono::microseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
    }
}

/// The number of the last batch that is there. Throws when one that was heard is missing, or one is
/// there by half.
std::int64_t examine(const std::filesystem::path& folder, std::int64_t lastHeard) {
    const auto store = open(folder);
    const auto number = [&](const char* sql) {
        return static_cast<std::int64_t>(*test::query(*store, sql).rows.at(0).at(0).number());
    };
    if (const auto check = test::query(*store, "pragma integrity_check").rows;
        check != std::vector<std::vector<zem::SQLiteValue>>{{"ok"}}) {
        throw std::runtime_error("the database is damaged");
    }
    if (const auto halves = test::query(
            *store, fmt::format("select data, count(*) from zem_data where key like 'batch %' "
                                "group by data having count(*) <> {}",
                                rowsInBatch));
        !halves.rows.empty()) {
        throw std::runtime_error("batch " + *halves.rows[0][0].string() + " is there by half");
    }
    const std::int64_t batches =
        number("select count(distinct data) from zem_data where key like 'batch %'");
    const std::int64_t last =
        number("select coalesce(max(cast(data as integer)), -1) from zem_data where key = 'last'");
    if (batches != last + 1) {
        throw std::runtime_error(
            fmt::format("{} batches are there, and the last is number {}", batches, last));
    }
    if (last < lastHeard) {
        throw std::runtime_error(
            fmt::format("batch {} was heard to be complete and is lost", lastHeard));
    }
    return last;
}

int runCycles(int cycles, unsigned seed) {
    std::mt19937 random(seed);
    const test::TemporaryFolder folder;
    std::int64_t last = -1;
    std::int64_t unheard = 0;
    for (int cycle = 1; cycle <= cycles; ++cycle) {
        try {
            Writer writer(folder.path(), last + 1);
            std::int64_t heard = last;
            const auto wanted = std::uniform_int_distribution(0, mostHeard)(random);
            for (int count = 0; count < wanted; ++count) {
                const auto number = writer.next();
                if (!number) {
                    throw std::runtime_error("the writer ended by itself");
                }
                heard = *number;
            }
            spinFor(std::chrono::microseconds(
                std::uniform_int_distribution(0, mostMicroseconds)(random)));
            writer.kill();
            while (const auto number = writer.next()) {
                heard = *number;
            }
            last = examine(folder.path(), heard);
            unheard += last - heard;
        } catch (const std::exception& error) {
            std::fprintf(stderr, "cycle %d of seed %u: %s\n", cycle, seed, error.what());
            return 1;
        }
    }
    std::printf(
        "%d cycles of seed %u: %lld batches, all whole; %lld of them were complete unheard\n",
        cycles, seed, static_cast<long long>(last + 1), static_cast<long long>(unheard));
    return 0;
}

template <class Number>
bool parse(const char* text, Number& number) {
    const char* end = text + std::strlen(text);
    const auto [stopped, failure] = std::from_chars(text, end, number);
    return failure == std::errc() && stopped == end;
}

} // namespace

int main(int argc, char** argv) {
    std::int64_t first = 0;
    if (argc == 4 && std::string_view(argv[1]) == "--write" && parse(argv[3], first)) {
        writeForEver(argv[2], first);
    }
    int cycles = 0;
    unsigned seed = std::random_device()();
    if (argc < 2 || argc > 3 || !parse(argv[1], cycles) || cycles < 1 ||
        (argc == 3 && !parse(argv[2], seed))) {
        std::fprintf(stderr, "usage: zem-crash-loop CYCLES [SEED]\n");
        return 2;
    }
    return runCycles(cycles, seed);
}
