#include <zem/Platform/Private/SystemLog.h>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace {

using namespace zem::platform;

constexpr const char* journalSocket = "/run/systemd/journal/socket";
constexpr const char* privateRun = "ZEM_TEST_PRIVATE_RUN";

bool isPrivateRun() {
    return std::getenv(privateRun) != nullptr;
}

// The journal listens in one place on a machine; a namespace of mounts gives a process another
// /run.
std::string inPrivateRun(const std::string& command) {
    return "unshare --user --map-root-user --mount -- sh -c 'mount -t tmpfs tmpfs /run && " +
           command + "'";
}

bool canHavePrivateRun() {
    return std::system((inPrivateRun("true") + " 2>/dev/null").c_str()) == 0;
}

// Runs this very test once more, in a process with an empty /run of its own.
int runAgainInPrivateRun() {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    const auto program = std::filesystem::read_symlink("/proc/self/exe").string();
    return std::system(inPrivateRun(fmt::format("{}=1 exec \"{}\" --gtest_filter={}.{}", privateRun,
                                                program, test->test_suite_name(), test->name()))
                           .c_str());
}

// The journal's end of things: a datagram for each line.
class Journal {
  public:
    Journal() {
        std::filesystem::create_directories(std::filesystem::path(journalSocket).parent_path());
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::string_view(journalSocket).copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~Journal() {
        close(descriptor);
        std::filesystem::remove(journalSocket);
    }
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    /// A datagram that has come; sending one to a socket of this machine is done when it returns.
    std::string receive() const {
        std::string datagram(4096, '\0');
        const auto size = recv(descriptor, datagram.data(), datagram.size(), MSG_DONTWAIT);
        datagram.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return datagram;
    }

  private:
    int descriptor = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
};

std::string stderrOf(const Log& log, const char* text) {
    testing::internal::CaptureStderr();
    log.error("%{public}s and %s", {text, "secret"});
    return testing::internal::GetCapturedStderr();
}

TEST(SystemLog, NamesTheJournalsFields) {
    const auto fields = [](LogLevel level) {
        return journalFields({level, "subsystem", "category", "a\nb=c"});
    };
    EXPECT_EQ(
        fields(LogLevel::error),
        (std::vector<std::string>{"MESSAGE=a\nb=c", "PRIORITY=3",
                                  "SYSLOG_IDENTIFIER=" + std::string(program_invocation_short_name),
                                  "ZEM_SUBSYSTEM=subsystem", "ZEM_CATEGORY=category"}));
    EXPECT_EQ(fields(LogLevel::debug)[1], "PRIORITY=7");
    EXPECT_EQ(fields(LogLevel::info)[1], "PRIORITY=6");
    EXPECT_EQ(fields(LogLevel::default_)[1], "PRIORITY=5");
    EXPECT_EQ(fields(LogLevel::fault)[1], "PRIORITY=2");
}

TEST(SystemLog, KeepsALineOneLineOnTheConsole) {
    EXPECT_EQ(consoleLine({LogLevel::debug, "s", "c", ""}), "s/c debug: \n");
    EXPECT_EQ(consoleLine({LogLevel::info, "s", "c", "tab\tand é"}), "s/c info: tab\tand é\n");
    EXPECT_EQ(consoleLine({LogLevel::default_, "s", "c", "a\nb\r"}), "s/c default: a\\nb\\x0d\n");
    EXPECT_EQ(consoleLine({LogLevel::error, "s", "c", "\x1b[31m\x7f"}),
              "s/c error: \\x1b[31m\\x7f\n");
    EXPECT_EQ(consoleLine({LogLevel::fault, "s", "c", "x"}), "s/c fault: x\n");
}

TEST(SystemLog, WritesToStandardErrorWhereThereIsNoJournal) {
    if (std::filesystem::exists(journalSocket)) {
        if (!canHavePrivateRun()) {
            GTEST_SKIP() << "this machine has a journal and allows no namespaces to hide it";
        }
        EXPECT_EQ(runAgainInPrivateRun(), 0);
        return;
    }
    EXPECT_EQ(stderrOf(Log("com.quorvane.ZEM", "SQLiteStore"), "text"),
              "com.quorvane.ZEM/SQLiteStore error: text and <private>\n");
}

TEST(SystemLog, WritesFieldsToTheJournalWhileThereIsOne) {
    if (!isPrivateRun()) {
        if (!canHavePrivateRun()) {
            GTEST_SKIP() << "this machine allows no namespaces to put a journal of the test's in";
        }
        EXPECT_EQ(runAgainInPrivateRun(), 0);
        return;
    }
    const Log log("com.quorvane.ZEM", "SQLiteStore");
    {
        const Journal journal;
        EXPECT_EQ(stderrOf(log, "text"), "");
        EXPECT_EQ(journal.receive(),
                  "MESSAGE=text and <private>\nPRIORITY=3\nSYSLOG_IDENTIFIER=zem-tests-Platform\n"
                  "ZEM_SUBSYSTEM=com.quorvane.ZEM\nZEM_CATEGORY=SQLiteStore\n");
        EXPECT_EQ(journal.receive(), "");
    }
    EXPECT_EQ(stderrOf(log, "it has gone"),
              "com.quorvane.ZEM/SQLiteStore error: it has gone and <private>\n");
}

} // namespace
