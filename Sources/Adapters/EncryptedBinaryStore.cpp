#include <zem/Adapters/EncryptedBinaryStore.h>
#include <zem/Adapters/Fetcher.h>
#include <zem/Adapters/Private/BinaryStoreFile.h>
#include <zem/Platform/Log.h>
#include <zem/Platform/Queue.h>
#include <zem/SqliteStore/Private/CallOut.h>
#include <zem/SqliteStore/SQLiteResult.h>

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <map>
#include <stdexcept>
#include <type_traits>
#include <utility>

namespace zem {
namespace {

using Answer = std::expected<std::string, std::string>;
using Completion = std::function<void(Answer)>;
using Fetched = std::expected<FetchedContent, std::string>;
using Name = BinaryStoreFile::Name;

constexpr const char* gone = "the binary store is gone";

const platform::Log& binaryStoreLog() {
    static const platform::Log& log = *new platform::Log("com.quorvane.ZEM", "BinaryStore");
    return log;
}

/// A fetch that is out, and the calls that wait for it.
struct Fetch {
    Fetch(std::string from, std::int64_t seconds, const Completion& first)
        : url(std::move(from))
        , ttlSeconds(seconds)
        , waiting{first} {}

    void join(std::int64_t seconds, const Completion& another) {
        ttlSeconds = std::max(ttlSeconds, seconds);
        waiting.push_back(another);
    }

    const std::string url;
    std::int64_t ttlSeconds; // the longest of the calls'
    std::vector<Completion> waiting;
};

std::string cannotKeep(std::size_t size, const std::string& why) {
    return fmt::format("a binary of {} bytes cannot be kept: {}", size, why);
}

void answer(const std::vector<Completion>& waiting, const Answer& result) {
    for (const Completion& completion : waiting) {
        callOut("the completion of a cached binary", completion, result);
    }
}

} // namespace

class EncryptedBinaryStore::State : public std::enable_shared_from_this<State> {
  public:
    explicit State(const Options& options)
        : clock(options.clock)
        , fetcher(options.fetcher)
        , file(std::make_unique<BinaryStoreFile>(options, clock())) {}

    /// Runs `work` on the file, one call at a time. Returns its result, or why it failed.
    template <class Work>
    auto perform(Work&& work)
        -> std::expected<std::invoke_result_t<Work&, BinaryStoreFile&, Time>, std::string>;

    /// The same for a call that has nobody to tell of a failure.
    template <class Work>
    auto performOrLog(const char* doing, Work&& work) {
        auto result = perform(std::forward<Work>(work));
        if (!result) {
            binaryStoreLog().error("%{public}s failed: %{public}s", {doing, result.error()});
        }
        return result;
    }

    void cache(const platform::URL& url, std::int64_t ttlSeconds, const Completion& completion);
    void close();

  private:
    void start(Fetcher& with, const platform::URL& url, const std::shared_ptr<Fetch>& fetch);
    void arrived(const std::shared_ptr<Fetch>& fetch, const Fetched& fetched);

    const Clock clock;
    const std::shared_ptr<platform::SerialQueue> queue =
        platform::SerialQueue::create("com.quorvane.zem.BinaryStore");
    // Used on the queue only, and null when the store is gone.
    std::shared_ptr<Fetcher> fetcher;
    std::unique_ptr<BinaryStoreFile> file;
    std::map<std::string, std::shared_ptr<Fetch>> fetches;
};

template <class Work>
auto EncryptedBinaryStore::State::perform(Work&& work)
    -> std::expected<std::invoke_result_t<Work&, BinaryStoreFile&, Time>, std::string> {
    using Result = std::expected<std::invoke_result_t<Work&, BinaryStoreFile&, Time>, std::string>;
    Result result = std::unexpected(gone);
    const Time now = clock();
    queue->sync([&] {
        if (!file) {
            return;
        }
        try {
            result = Result(std::in_place, work(*file, now));
        } catch (const SQLiteResult& failure) {
            result = std::unexpected(
                fmt::format("{} (SQLite error {})", failure.description(), failure.rawValue));
        } catch (const std::exception& failure) {
            result = std::unexpected(failure.what());
        }
    });
    return result;
}

void EncryptedBinaryStore::State::cache(const platform::URL& url, std::int64_t ttlSeconds,
                                        const Completion& completion) {
    const std::string& text = url.absoluteString();
    std::shared_ptr<Fetcher> starting;
    std::shared_ptr<Fetch> fetch;
    const auto found = perform([&](BinaryStoreFile& open, Time now) -> std::optional<Answer> {
        if (std::optional<std::string> handle = open.handleOf(text, now)) {
            return *std::move(handle);
        }
        if (!fetcher) {
            return std::unexpected("the binary store has no fetcher: it caches nothing new");
        }
        if (const auto out = fetches.find(text); out != fetches.end()) {
            out->second->join(ttlSeconds, completion);
            return std::nullopt;
        }
        starting = fetcher;
        fetch = std::make_shared<Fetch>(text, ttlSeconds, completion);
        fetches.emplace(text, fetch);
        return std::nullopt;
    });
    if (!found) {
        answer({completion}, std::unexpected("the binaries cannot be read: " + found.error()));
    } else if (*found) {
        answer({completion}, **found);
    } else if (starting) {
        start(*starting, url, fetch);
    }
}

void EncryptedBinaryStore::State::start(Fetcher& with, const platform::URL& url,
                                        const std::shared_ptr<Fetch>& fetch) {
    try {
        with.fetch(url, [state = weak_from_this(), fetch](const Fetched& fetched) {
            if (const auto alive = state.lock()) {
                alive->arrived(fetch, fetched);
            }
        });
    } catch (const std::exception& error) {
        arrived(fetch, std::unexpected(error.what()));
    }
}

void EncryptedBinaryStore::State::arrived(const std::shared_ptr<Fetch>& fetch,
                                          const Fetched& fetched) {
    std::vector<Completion> waiting;
    const auto kept = perform([&](BinaryStoreFile& open, Time now) -> Answer {
        const auto out = fetches.find(fetch->url);
        if (out == fetches.end() || out->second != fetch) {
            return {}; // called back before
        }
        waiting = std::move(fetch->waiting);
        fetches.erase(out);
        if (!fetched) {
            return std::unexpected(fetched.error());
        }
        const Name name{fetch->url, BinaryStoreFile::expiryAfter(now, fetch->ttlSeconds)};
        return open.keep(fetched->bytes, fetched->mimeType, name, now);
    });
    const std::size_t size = fetched ? fetched->bytes.size() : 0;
    answer(waiting, kept ? *kept : std::unexpected(cannotKeep(size, kept.error())));
}

void EncryptedBinaryStore::State::close() {
    std::vector<Completion> waiting;
    std::shared_ptr<Fetcher> last;
    queue->sync([&] {
        for (const auto& [url, fetch] : std::exchange(fetches, {})) {
            std::ranges::move(fetch->waiting, std::back_inserter(waiting));
        }
        file.reset();
        last = std::move(fetcher);
    });
    answer(waiting, std::unexpected(gone));
}

std::shared_ptr<EncryptedBinaryStore> EncryptedBinaryStore::create(const Options& options) {
    return std::shared_ptr<EncryptedBinaryStore>(
        new EncryptedBinaryStore(std::make_shared<State>(options)));
}

EncryptedBinaryStore::EncryptedBinaryStore(std::shared_ptr<State> given)
    : state(std::move(given)) {}

EncryptedBinaryStore::~EncryptedBinaryStore() {
    close();
}

void EncryptedBinaryStore::close() {
    const std::shared_ptr<State> alive = state; // an answer may drop the store
    alive->close();
}

std::string EncryptedBinaryStore::store(const platform::Bytes& data, const std::string& type,
                                        std::uint64_t) {
    auto handle = state->perform(
        [&](BinaryStoreFile& file, Time now) { return file.keep(data, type, std::nullopt, now); });
    if (!handle) {
        throw std::runtime_error(cannotKeep(data.size(), handle.error()));
    }
    return *std::move(handle);
}

void EncryptedBinaryStore::cache(const platform::URL& url, std::int64_t ttlSeconds,
                                 std::function<void(Answer)> completion) {
    if (ttlSeconds < 1) {
        answer({completion},
               std::unexpected(fmt::format("expected a time to live of at least 1 second, found {}",
                                           ttlSeconds)));
        return;
    }
    // A completion may drop the last reference to the store.
    const std::shared_ptr<State> alive = state;
    alive->cache(url, ttlSeconds, completion);
}

void EncryptedBinaryStore::setCanonicalUrl(const std::string& uri, const std::string& canonicalUrl,
                                           std::int64_t ttlSeconds) {
    (void)state->performOrLog("naming a binary", [&](BinaryStoreFile& file, Time now) {
        file.setName(uri, {canonicalUrl, BinaryStoreFile::expiryAfter(now, ttlSeconds)}, now);
        return true;
    });
}

std::optional<platform::Bytes> EncryptedBinaryStore::cachedData(const std::string& handle) {
    auto bytes = state->performOrLog("reading a binary", [&](BinaryStoreFile& file, Time now) {
        return file.read(handle, now);
    });
    return bytes ? *std::move(bytes) : std::nullopt;
}

bool EncryptedBinaryStore::remove(const std::string& uri) {
    return state
        ->performOrLog("removing a binary",
                       [&](BinaryStoreFile& file, Time now) { return file.remove(uri, now); })
        .value_or(false);
}

std::expected<std::vector<EncryptedBinaryStore::Blob>, std::string> EncryptedBinaryStore::blobs() {
    return state->perform([](BinaryStoreFile& file, Time now) { return file.blobs(now); });
}

} // namespace zem
