#include <zem/Core/AdapterRequestContext.h>
#include <zem/Tessel/JSON.h>
#include <zem/Tessel/JSValueCoder.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <limits>
#include <optional>
#include <string>
#include <utility>

namespace {

using namespace zem;

template <class T>
std::string written(const T& value) {
    return tessel::toText(tessel::toAny(value));
}

template <class T>
tessel::Decoded<T> read(std::string_view json) {
    return tessel::fromAny<T>(*tessel::parse(json));
}

/// The error of reading `json`; empty when it can be read.
template <class T>
std::string failure(std::string_view json) {
    const auto outcome = read<T>(json);
    return outcome ? std::string() : outcome.error().description();
}

TEST(CachePolicy, IsWrittenFlatWithItsTypeLast) {
    EXPECT_EQ(written(CachePolicy::cacheAndNetwork(60)),
              R"({"staleDurationSeconds":60,"type":"cache-and-network"})");
    EXPECT_EQ(written(CachePolicy::cacheThenNetwork()), R"({"type":"cache-then-network"})");
    EXPECT_EQ(written(CachePolicy::noCache()), R"({"type":"no-cache"})");
    EXPECT_EQ(written(CachePolicy::onlyIfCached()), R"({"type":"only-if-cached"})");
    EXPECT_EQ(written(CachePolicy::staleWhileRevalidate(30)),
              R"({"staleDurationSeconds":30,"type":"stale-while-revalidate"})");
    EXPECT_EQ(
        written(CachePolicy::validAt(1700000000, CachePolicy::staleWhileRevalidate(30))),
        R"({"timestamp":1700000000,"basePolicy":{"staleDurationSeconds":30,"type":"stale-while-revalidate"},"type":"valid-at"})");
}

TEST(CachePolicy, WritesAnAbsentDurationAsNullAndLeavesAnAbsentBaseOut) {
    EXPECT_EQ(written(CachePolicy::cacheAndNetwork()),
              R"({"staleDurationSeconds":null,"type":"cache-and-network"})");
    EXPECT_EQ(written(CachePolicy::validAt(5)), R"({"timestamp":5,"type":"valid-at"})");
}

TEST(CachePolicy, ReadsBackWhatIsComplete) {
    for (const CachePolicy& policy :
         {CachePolicy::cacheAndNetwork(60), CachePolicy::cacheThenNetwork(), CachePolicy::noCache(),
          CachePolicy::onlyIfCached(), CachePolicy::staleWhileRevalidate(-1),
          CachePolicy::staleWhileRevalidate(std::numeric_limits<std::int64_t>::max()),
          CachePolicy::validAt(1700000000, CachePolicy::staleWhileRevalidate(30)),
          CachePolicy::validAt(1, CachePolicy::validAt(2, CachePolicy::noCache()))}) {
        EXPECT_EQ(read<CachePolicy>(written(policy)), policy) << written(policy);
    }
}

TEST(CachePolicy, ReadsMoreStrictlyThanItWrites) {
    EXPECT_EQ(failure<CachePolicy>(written(CachePolicy::cacheAndNetwork())),
              "staleDurationSeconds: expected an integer, found null");
    EXPECT_EQ(failure<CachePolicy>(written(CachePolicy::validAt(5))),
              "basePolicy: expected an object, found undefined");
    EXPECT_EQ(failure<CachePolicy>(R"({"timestamp":5,"basePolicy":null,"type":"valid-at"})"),
              "basePolicy: expected an object, found null");
    EXPECT_EQ(failure<CachePolicy>(R"({"type":"stale-while-revalidate"})"),
              "staleDurationSeconds: expected an integer, found undefined");
    EXPECT_EQ(failure<CachePolicy>(R"({"basePolicy":{"type":"no-cache"},"type":"valid-at"})"),
              "timestamp: expected an integer, found undefined");
}

TEST(CachePolicy, RefusesAnotherTypeWithItsFixedText) {
    EXPECT_EQ(failure<CachePolicy>(R"({"type":"Cache-And-Network","staleDurationSeconds":1})"),
              "Unabled to decode enum.");
    EXPECT_EQ(failure<CachePolicy>(R"({"type":""})"), "Unabled to decode enum.");
    EXPECT_EQ(
        failure<CachePolicy>(R"({"timestamp":1,"basePolicy":{"type":"x"},"type":"valid-at"})"),
        "basePolicy: Unabled to decode enum.");
    EXPECT_EQ(failure<CachePolicy>("{}"), "type: expected a string, found undefined");
    EXPECT_EQ(failure<CachePolicy>("[]"), "expected an object, found an array");
}

TEST(CachePolicy, IsEqualByCaseAndPayloadThroughTheBase) {
    EXPECT_EQ(CachePolicy::validAt(1, CachePolicy::noCache()),
              CachePolicy::validAt(1, CachePolicy::noCache()));
    EXPECT_NE(CachePolicy::validAt(1, CachePolicy::noCache()),
              CachePolicy::validAt(1, CachePolicy::onlyIfCached()));
    EXPECT_NE(CachePolicy::validAt(1, CachePolicy::noCache()), CachePolicy::validAt(1));
    EXPECT_NE(CachePolicy::validAt(1), CachePolicy::validAt(2));
    EXPECT_NE(CachePolicy::cacheAndNetwork(30), CachePolicy::staleWhileRevalidate(30));
    EXPECT_NE(CachePolicy::cacheAndNetwork(), CachePolicy::cacheAndNetwork(0));
}

TEST(AdapterRequestPriority, CrossesAsItsRawText) {
    EXPECT_EQ(written(AdapterRequestPriority::high), R"("high")");
    EXPECT_EQ(written(AdapterRequestPriority::normal), R"("normal")");
    EXPECT_EQ(written(AdapterRequestPriority::background), R"("background")");
    EXPECT_EQ(tessel::fromRawText<AdapterRequestPriority>("background"),
              AdapterRequestPriority::background);
    EXPECT_EQ(tessel::fromRawText<AdapterRequestPriority>("urgent"), std::nullopt);
}

TEST(AdapterRequestPriority, IsNormalWhenNothingIsSaid) {
    EXPECT_EQ(priorityOf(std::nullopt), AdapterRequestPriority::normal);
    EXPECT_EQ(priorityOf(AdapterRequestContext{}), AdapterRequestPriority::normal);
    EXPECT_EQ(priorityOf(AdapterRequestContext{.cachePolicy = {},
                                               .priority = AdapterRequestPriority::high,
                                               .observabilityContext = {}}),
              AdapterRequestPriority::high);
}

TEST(ObservabilityContext, IsWrittenWithWhatIsThere) {
    EXPECT_EQ(written(ObservabilityContext{}), "{}");
    EXPECT_EQ(
        written(ObservabilityContext{.rootId = {}, .isRootActivitySampled = false, .traceId = {}}),
        R"({"isRootActivitySampled":false})");
    EXPECT_EQ(
        written(ObservabilityContext{.rootId = "r", .isRootActivitySampled = true, .traceId = "t"}),
        R"({"rootId":"r","isRootActivitySampled":true,"traceId":"t"})");
}

TEST(AdapterRequestContext, IsWrittenInItsOrderWithWhatIsThere) {
    EXPECT_EQ(written(AdapterRequestContext{}), "{}");
    EXPECT_EQ(
        written(AdapterRequestContext{
            .cachePolicy = CachePolicy::noCache(),
            .priority = AdapterRequestPriority::background,
            .observabilityContext =
                ObservabilityContext{.rootId = "r", .isRootActivitySampled = {}, .traceId = {}}}),
        R"({"cachePolicy":{"type":"no-cache"},"priority":"background","observabilityContext":{"rootId":"r"}})");
}

TEST(AdapterRequestContext, ReadsMissingKeysAsAbsent) {
    EXPECT_EQ(read<AdapterRequestContext>("{}"), AdapterRequestContext{});
    const AdapterRequestContext whole{
        .cachePolicy = CachePolicy::staleWhileRevalidate(30),
        .priority = AdapterRequestPriority::high,
        .observabilityContext =
            ObservabilityContext{.rootId = "r", .isRootActivitySampled = true, .traceId = "t"}};
    EXPECT_EQ(read<AdapterRequestContext>(written(whole)), whole);
    EXPECT_EQ(read<ObservabilityContext>(R"({"traceId":"t"})"),
              (ObservabilityContext{.rootId = {}, .isRootActivitySampled = {}, .traceId = "t"}));
}

TEST(AdapterRequestContext, RefusesAnUnknownPriority) {
    EXPECT_EQ(failure<AdapterRequestContext>(R"({"priority":"High"})"),
              R"(priority: expected one of "high", "normal", "background", found another string)");
}

TEST(AdapterRequestContext, BecomesAnObjectOfTheEngineWithoutAbsentProperties) {
    const js::Context context = test::makeContext();
    context.perform([](js::Scope& scope) {
        const AdapterRequestContext request{.cachePolicy = CachePolicy::cacheAndNetwork(),
                                            .priority = {},
                                            .observabilityContext = {}};
        const js::Local object = tessel::encodeValue(scope, request);
        EXPECT_EQ(**scope.stringify(object),
                  R"({"cachePolicy":{"staleDurationSeconds":null,"type":"cache-and-network"}})");
        EXPECT_EQ(scope.has(object, js::Name("priority")), false);
    });
}

} // namespace
