// Opens a store once, as a small program of somebody's would.
//
//     zem-first-opening FOLDER open      opens it, and closes it
//     zem-first-opening FOLDER mend      the same, and removes a half-made file first
//     zem-first-opening FOLDER die       opens it, and is killed
//     zem-first-opening FOLDER write     opens it, writes an entry, and is killed
//     zem-first-opening FOLDER refuse    fails to open it, because there is no key
//
// With a last word "wait" it begins when it reads a byte. Exit code 0 says that the store was
// opened.

#include <zem/SqliteStore/SQLiteOpeningError.h>

#include <SqliteStore/Store.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <unistd.h>

namespace {

using namespace zem;

std::shared_ptr<SQLiteStore> open(const SQLiteStore::Options& options, std::string_view mode) {
    try {
        return SQLiteStore::create(options);
    } catch (const SQLiteOpeningError& error) {
        if (mode != "mend" || error.value != SQLiteOpeningError::halfMade ||
            !SQLiteStore::removeHalfMade(options)) {
            throw;
        }
        std::puts("removed");
        return SQLiteStore::create(options);
    }
}

void work(const char* folder, std::string_view mode) {
    const auto refuse = []() -> platform::SecretBytes {
        throw std::runtime_error("no key today");
    };
    const auto store = open({folder, mode == "refuse" ? SQLiteStore::EncryptionOption::key(refuse)
                                                      : test::keyAndSalt()},
                            mode);
    const auto version = test::query(*store, "pragma user_version").rows.at(0).at(0);
    std::printf("version %g\n", *version.number());
    std::fflush(stdout);
    if (mode == "write" && test::batch(*store, {test::upsert({{"kept", "{}", nullptr}})})) {
        throw std::runtime_error("the batch failed");
    }
    if (mode == "die" || mode == "write") {
        std::raise(SIGKILL);
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fputs("usage: zem-first-opening FOLDER open|mend|die|write|refuse [wait]\n", stderr);
        return 2;
    }
    char byte = 0;
    if (argc > 3 && read(STDIN_FILENO, &byte, 1) != 1) {
        return 2;
    }
    try {
        work(argv[1], argv[2]);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
