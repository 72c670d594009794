#include <zem/Platform/ChromeTrace.h>
#include <zem/Platform/Mutex.h>

#include <boost/json/serialize.hpp>
#include <fmt/format.h>
#include <glib.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <map>
#include <optional>
#include <pthread.h>
#include <set>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace zem::platform {

namespace {

using Clock = std::chrono::steady_clock;

// A JSON string. Bytes that are not UTF-8 are replaced, or no viewer would open the file.
std::string jsonText(std::string_view text) {
    if (g_utf8_validate_len(text.data(), text.size(), nullptr) != FALSE) {
        return boost::json::serialize(text);
    }
    const std::unique_ptr<char, decltype(&g_free)> valid(
        g_utf8_make_valid(text.data(), static_cast<gssize>(text.size())), g_free);
    return boost::json::serialize(std::string_view(valid.get()));
}

std::string threadName() {
    char name[16] = {};
    return pthread_getname_np(pthread_self(), name, sizeof name) == 0 ? name : "";
}

class ChromeTrace final : public SignpostSink {
  public:
    explicit ChromeTrace(const std::filesystem::path& place)
        : path(place.string())
        , file(std::fopen(place.c_str(), "wbe"), std::fclose) {
        if (file == nullptr) {
            throw std::system_error(errno, std::generic_category(), "trace file " + path);
        }
        put(R"({"displayTimeUnit":"ms","traceEvents":[)");
    }

    ~ChromeTrace() override { report(finish()); }

    void emit(const Signpost& signpost) override {
        const Interval interval{signpost.id.value, std::string(signpost.category),
                                std::string(signpost.name)};
        const std::string arguments =
            signpost.format.empty()
                ? "{}"
                : fmt::format(R"({{"message":{}}})",
                              jsonText(formatLog(signpost.format, signpost.arguments)));
        const std::string event = eventText(phase(signpost.type, signpost.id), interval, arguments);
        report(record(signpost.type, interval, event));
    }

  private:
    struct Interval {
        std::uint64_t id;
        std::string category;
        std::string name;
    };
    // The number of a system call's error that is still to be reported.
    using Failure = std::optional<int>;

    static char phase(SignpostType type, SignpostID id) {
        switch (type) {
        case SignpostType::intervalBegin:
            return 'b';
        case SignpostType::intervalEnd:
            return 'e';
        case SignpostType::event:
            break;
        }
        return id == SignpostID::null() ? 'i' : 'n';
    }

    // As of now, on the calling thread.
    std::string eventText(char phase, const Interval& interval,
                          const std::string& arguments) const {
        const auto nanoseconds = std::chrono::nanoseconds(Clock::now() - start).count();
        const std::string scope =
            phase == 'i' ? R"("s":"t")" : fmt::format(R"("id":"0x{:x}")", interval.id);
        return fmt::format(
            R"({{"name":{},"cat":{},"ph":"{}",{},"ts":{}.{:03},"pid":{},"tid":{},"args":{}}})",
            jsonText(interval.name), jsonText(interval.category), phase, scope, nanoseconds / 1000,
            nanoseconds % 1000, getpid(), gettid(), arguments);
    }

    static std::string threadText() {
        return fmt::format(
            R"({{"name":"thread_name","ph":"M","pid":{},"tid":{},"args":{{"name":{}}}}})", getpid(),
            gettid(), jsonText(threadName()));
    }

    Failure record(SignpostType type, const Interval& interval, const std::string& event) {
        Lock lock(mutex);
        if (type == SignpostType::intervalBegin) {
            open.emplace(interval.id, interval);
        } else if (type == SignpostType::intervalEnd && !close(interval)) {
            return std::nullopt;
        }
        if (named.insert(gettid()).second) {
            putEvent(threadText());
        }
        putEvent(event);
        return takeFailure();
    }

    // Forgets the interval; false when it began before the trace did: its end would pair with
    // nothing and is left out.
    bool close(const Interval& interval) {
        const auto [first, last] = open.equal_range(interval.id);
        for (auto each = last; each != first;) {
            --each;
            if (each->second.name == interval.name && each->second.category == interval.category) {
                open.erase(each);
                return true;
            }
        }
        return false;
    }

    // Intervals that are still open, such as that of a query whose store was destroyed, end with
    // the trace: the innermost first, for they nest.
    Failure finish() {
        Lock lock(mutex);
        for (auto each = open.rbegin(); each != open.rend(); ++each) {
            putEvent(eventText('e', each->second, R"({"message":"unfinished"})"));
        }
        put("\n]}\n");
        if (std::fclose(file.release()) != 0) {
            fail();
        }
        return takeFailure();
    }

    void putEvent(const std::string& event) {
        put(std::exchange(isFirst, false) ? "\n" : ",\n");
        put(event);
    }

    void put(std::string_view text) {
        if (!failed && std::fwrite(text.data(), 1, text.size(), file.get()) != text.size()) {
            fail();
        }
    }

    void fail() {
        if (!std::exchange(failed, true)) {
            failure = errno;
        }
    }

    Failure takeFailure() { return std::exchange(failure, std::nullopt); }

    // Without the lock, for the log's writer is not ours.
    void report(Failure number) const {
        if (number) {
            Log("com.quorvane.ZEM", "Trace")
                .error("The trace %{public}s is incomplete: %{public}s",
                       {path, std::generic_category().message(*number)});
        }
    }

    const std::string path;
    const Clock::time_point start = Clock::now();
    Mutex mutex;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> file;
    bool isFirst = true;
    bool failed = false;
    Failure failure;
    std::set<pid_t> named;
    std::multimap<std::uint64_t, Interval> open;
};

} // namespace

std::shared_ptr<SignpostSink> makeChromeTrace(const std::filesystem::path& file) {
    return std::make_shared<ChromeTrace>(file);
}

} // namespace zem::platform
