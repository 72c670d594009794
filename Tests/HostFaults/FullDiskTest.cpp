// A disk that is full: an upload, a download and a save each end in one clear error, and nothing of
// them is kept.

#include <gmock/gmock.h>

#include <Apps/Host.h>
#include <Support/LoopbackServer.h>
#include <algorithm>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;
using test::Host;
using test::LoopbackServer;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// More than SQLite's page cache holds.
const std::string file(3 << 20, 'x');

constexpr const char* full =
    "a binary of 3145728 bytes cannot be kept: database or disk is full (SQLite error 13)";

class FullDisk : public testing::Test {
  protected:
    FullDisk() {
        host.write("bundle.js", R"(
            globalThis.runtime = { dataService: {
                invokeAdapter(id, config, callback) { callback({ data: {} }) },
            } };
        )");
        // Opens what is in data/ for the first time.
        EXPECT_EQ(run("").code, 0);
    }

    /// A run in which the `at`th change of `folder`, and every later one, finds the disk full.
    test::Process::Result run(const std::string& commands, const std::string& folder = "data",
                              std::size_t at = 0) {
        host.write("commands.txt", commands);
        host.environment = {{"LD_PRELOAD", ZEM_FAULTS},
                            {"ZEM_FAULT_FOLDER", (host.folder() / folder).string()},
                            {"ZEM_FAULT_KIND", "full"},
                            {"ZEM_FAULT_AT", std::to_string(at)},
                            {"ZEM_FAULT_LOG", (host.folder() / "log").string()},
                            {"ZEM_FAULT_IMAGE", ""}};
        return host.run(
            {"run", "bundle.js", "--data", "data", "--keys", "keys", "--commands", "commands.txt"});
    }

    /// The first change after those of a run without commands: it is the commands' own.
    std::size_t firstOwnChange() {
        fs::remove(host.folder() / "log");
        EXPECT_EQ(run("").code, 0);
        const std::string log = host.read("log");
        return static_cast<std::size_t>(std::ranges::count(log, '\n')) + 1;
    }

    void expectNoBinaries() {
        EXPECT_EQ(run("binary list\n").output, "binary list: no binaries\n");
    }

    Host host;
};

TEST_F(FullDisk, KeepsNothingOfAnUpload) {
    host.write("file", file);
    const auto result = run("upload file --title t\nwait\n", "data", firstOwnChange());
    EXPECT_EQ(result.output,
              std::string("i1 upload: failed: executeAdapter error - ") + full + "\n");
    EXPECT_EQ(result.errors,
              std::string("zem: commands.txt:1: i1 upload: executeAdapter error - ") + full + "\n");
    EXPECT_EQ(result.code, 4);
    expectNoBinaries();
}

TEST_F(FullDisk, KeepsNothingOfADownload) {
    LoopbackServer server([](const auto&, LoopbackServer::Connection& connection) {
        connection.respond(200, "", file);
    });
    const auto result = run("eval new Promise((done) => ZemBinaryStorePlugin.cacheBinary('" +
                                server.url() + "/x', 10, done, (why) => done('failed: ' + why)))\n",
                            "data", firstOwnChange());
    EXPECT_EQ(result.output, std::string("eval: 'failed: ") + full + "'\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
    expectNoBinaries();
}

TEST_F(FullDisk, LeavesTheFileThatABinaryWasToReplace) {
    host.write("file", file);
    const auto uploaded = run("upload file --title t\nwait\nbinary list\n");
    const std::size_t at = uploaded.output.find("\n  ", uploaded.output.find("HANDLE"));
    ASSERT_NE(at, std::string::npos) << uploaded.output;
    const std::string handle = uploaded.output.substr(at + 3, 36);
    fs::create_directory(host.folder() / "saved");
    host.write("saved/photo", "before");
    const auto result = run("binary save " + handle + " saved/photo\n", "saved", 1);
    EXPECT_EQ(result.errors,
              "zem: commands.txt:1: cannot write saved/photo: No space left on device\n");
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.code, 4);
    EXPECT_EQ(host.read("saved/photo"), "before");
    EXPECT_EQ(
        std::distance(fs::directory_iterator(host.folder() / "saved"), fs::directory_iterator()),
        1);
    EXPECT_EQ(run("binary save " + handle + " saved/photo\n").code, 0);
    EXPECT_TRUE(host.read("saved/photo") == file);
}

} // namespace
