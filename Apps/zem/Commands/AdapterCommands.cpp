#include "AdapterCommands.h"

#include "Arguments.h"
#include "MIMEType.h"
#include "Process/File.h"
#include <zem/Core/AdapterRequestContext.h>
#include <zem/Core/DataServiceProtocol.h>
#include <zem/Tessel/JSON.h>

#include <fmt/format.h>

#include <charconv>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <new>
#include <utility>

namespace zem::host {

namespace {

CallResult resultOf(const DataServiceResult& result) {
    if (!result) {
        return std::unexpected(result.error().errorDescription());
    }
    return show(*result);
}

ResultCallback resultsTo(const std::shared_ptr<Calls>& calls, const std::shared_ptr<Call>& call) {
    return [calls, call](const DataServiceResult& result) {
        calls->arrived(*call, resultOf(result));
    };
}

template <class T>
T expectDecoded(const char* option, tessel::Decoded<T> decoded) {
    if (!decoded) {
        throw CommandFailure(fmt::format("{}: {}", option, decoded.error().description()));
    }
    return *std::move(decoded);
}

/// Absent if there is neither --priority nor --cache-policy.
std::optional<AdapterRequestContext> requestContextOf(const CommandWords& words) {
    const auto priority = words.find("--priority");
    const auto policy = words.find("--cache-policy");
    if (!priority && !policy) {
        return std::nullopt;
    }
    AdapterRequestContext context;
    if (priority) {
        context.priority = expectDecoded(
            "--priority",
            tessel::fromAny<AdapterRequestPriority>(tessel::Any(boost::json::string(*priority))));
    }
    if (policy) {
        const auto value = expectDecoded("--cache-policy", tessel::parse(*policy));
        context.cachePolicy = expectDecoded("--cache-policy", tessel::fromAny<CachePolicy>(value));
    }
    return context;
}

std::int64_t parseTTL(const std::string& what, const std::string& text) {
    std::int64_t ttl = 0;
    const char* end = text.data() + text.size();
    const auto read = std::from_chars(text.data(), end, ttl);
    if (read.ec != std::errc() || read.ptr != end) {
        throw CommandFailure(fmt::format("ttl {}: expected an integer, found {}", what, text));
    }
    return ttl;
}

std::string mimeTypeOf(const CommandWords& words, const std::string& fileName) {
    const auto type = words.find("--type");
    if (type && !isMIMEType(*type)) {
        throw CommandFailure(
            fmt::format("--type: expected a MIME type such as image/png, found {}", *type));
    }
    return type.value_or(guessMIMEType(fileName));
}

platform::Bytes readUpload(const std::string& name) {
    try {
        return readBytes(name);
    } catch (const Failure& failure) {
        throw CommandFailure(failure.what());
    } catch (const std::bad_alloc&) {
        throw CommandFailure(fmt::format("there is not enough memory for {}", name));
    }
}

/// Takes the bytes.
void createContent(DataServiceProtocol& service, CreateContentVersionConfig& config,
                   std::optional<Metadata> metadata, bool isNewDocument, ResultCallback result) {
    if (isNewDocument) {
        service.createContentDocumentAndVersion(
            {std::move(config.title), std::move(config.description), std::move(config.fileData),
             std::move(config.fileName), std::move(config.mimeType)},
            std::move(metadata), std::move(result));
    } else {
        service.createContentVersion(std::move(config), std::move(metadata), std::move(result));
    }
}

} // namespace

void subscribe(CommandContext& context, const CommandWords& words, const CommandOrigin& origin) {
    const auto requestContext = requestContextOf(words);
    CommandOrigin named = origin;
    named.name = words.find("--as");
    if (named.name && named.name->empty()) {
        throw CommandFailure("--as: a name is not empty");
    }
    const std::string adapter = words["ADAPTER"];
    const auto call = context.calls->add(Calls::Kind::subscription, RuntimePart::dataService,
                                         std::move(named), adapter);
    const auto unsubscribe = std::make_shared<Unsubscribe>();
    context.subscriptions[Calls::nameOf(*call)] = unsubscribe;
    context.ask([adapter, config = words["CONFIG"], requestContext, unsubscribe,
                 results = resultsTo(context.calls, call)](RuntimeServices& services) {
        *unsubscribe =
            services.dataService().subscribeToAdapter(adapter, config, requestContext, results);
    });
}

void unsubscribe(CommandContext& context, const CommandWords& words, const CommandOrigin&) {
    const std::string name = words["NAME"];
    context.calls->removeSubscription(name);
    context.ask(
        [end = context.subscriptions.extract(name).mapped()](RuntimeServices&) { (*end)(); });
}

void invoke(CommandContext& context, const CommandWords& words, const CommandOrigin& origin) {
    const auto requestContext = requestContextOf(words);
    const Metadata metadata = parsePairs(words.all("--metadata"), "--metadata");
    const auto draft = words.find("--replace-draft");
    const std::string adapter = words["ADAPTER"];
    const auto call =
        context.calls->add(Calls::Kind::invocation, RuntimePart::dataService, origin, adapter);
    context.ask([adapter, config = words["CONFIG"], requestContext, metadata, draft,
                 result = resultsTo(context.calls, call)](RuntimeServices& services) {
        DataServiceProtocol& service = services.dataService();
        if (!metadata.empty()) {
            service.invokeAdapterWithMetadata(adapter, config, metadata, result);
        } else if (draft) {
            service.invokeAdapterWithDraftToReplace(adapter, config, *draft, result);
        } else {
            service.invokeAdapter(adapter, config, requestContext, result);
        }
    });
}

void upload(CommandContext& context, const CommandWords& words, const CommandOrigin& origin) {
    const std::string file = words["FILE"];
    const std::string name = std::filesystem::path(file).filename();
    const auto document = words.find("--document");
    std::optional<Metadata> metadata;
    if (const auto pairs = words.all("--metadata"); !pairs.empty()) {
        metadata = parsePairs(pairs, "--metadata");
    }
    // Shared: a function's copy would be a copy of the bytes.
    const auto config = std::make_shared<CreateContentVersionConfig>(
        CreateContentVersionConfig{.title = words["--title"],
                                   .description = words.find("--description").value_or(""),
                                   .contentDocumentId = document.value_or(""),
                                   .fileData = {},
                                   .fileName = name,
                                   .mimeType = mimeTypeOf(words, name)});
    config->fileData = readUpload(file);
    const auto call =
        context.calls->add(Calls::Kind::invocation, RuntimePart::dataService, origin, "upload");
    context.ask([config, metadata, isNewDocument = !document,
                 result = resultsTo(context.calls, call)](RuntimeServices& services) {
        createContent(services.dataService(), *config, metadata, isNewDocument, result);
    });
}

void setTTL(CommandContext& context, const CommandWords& words, const CommandOrigin& origin) {
    CommandOrigin named = origin;
    named.name = words["WHAT"];
    const std::int64_t ttl = parseTTL(*named.name, words["N"]);
    const bool isRecord = named.name == "record";
    const auto call =
        context.calls->add(Calls::Kind::ttl, RuntimePart::dataService, std::move(named), "");
    context.ask([calls = context.calls, call, ttl, isRecord](RuntimeServices& services) {
        const auto completion = [calls, call, ttl] {
            calls->arrived(*call, show(ttl));
        };
        if (isRecord) {
            services.dataService().setRimvoRecordTTL(ttl, completion);
        } else {
            services.dataService().setMetadataTTL(ttl, completion);
        }
    });
}

} // namespace zem::host
