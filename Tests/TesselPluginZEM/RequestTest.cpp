// The records of an exchange: what crosses the bridge, key by key.

#include <zem/JavaScript/Scope.h>
#include <zem/Tessel/JSON.h>
#include <zem/Tessel/JSValueCoder.h>
#include <zem/TesselPluginZEM/NetworkAdapter/Request.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <string>
#include <vector>

namespace {

using namespace zem;

class RequestTest : public testing::Test {
  protected:
    tessel::Decoded<Request> decode(const std::string& script) const {
        return context.perform([&](js::Scope& scope) {
            return tessel::decodeValue<Request>(scope, scope.evaluate(script, "test.js").value());
        });
    }

    std::string failure(const std::string& script) const {
        const auto decoded = decode(script);
        return decoded ? "decoded" : decoded.error().description();
    }

    /// The JSON of a record as JavaScript sees it.
    template <class Record>
    std::string seen(const Record& record) const {
        return context.perform([&](js::Scope& scope) {
            const auto global = scope.global();
            (void)scope.set(global, "record", tessel::encodeValue(scope, record));
            return scope.toText(scope.evaluate("JSON.stringify(record)", "test.js").value());
        });
    }

    const js::Context context = test::makeContext();
};

constexpr const char* least = R"(method: "GET", path: "/a", queryParams: {}, headers: {})";

std::string with(const std::string& more) {
    return "({" + std::string(least) + ", " + more + "})";
}

TEST_F(RequestTest, DecodesWithTheRequiredFieldsAlone) {
    Request expected;
    expected.method = HTTPMethod::GET;
    expected.path = "/a";
    EXPECT_EQ(decode("({" + std::string(least) + "})"), expected);
}

TEST_F(RequestTest, DecodesEveryField) {
    Request expected;
    expected.method = HTTPMethod::PATCH;
    expected.path = "/a b";
    expected.host = "other.example";
    expected.queryParams = {{"q", "1"}, {"r", ""}};
    expected.headers = {{"Accept", "*/*"}};
    expected.body = "text";
    expected.bodyData = platform::Bytes{1, 0, 255};
    expected.boundary = "B";
    expected.priority = RequestPriority::background;
    expected.observabilityContext = ObservabilityContext{"r", true, "t"};
    EXPECT_EQ(decode(R"js(({ method: "PATCH", path: "/a b", host: "other.example",
        queryParams: { q: "1", r: "" }, headers: { Accept: "*/*" }, body: "text",
        bodyData: new Uint8Array([1, 0, 255]), boundary: "B", priority: "background",
        observabilityContext: { rootId: "r", isRootActivitySampled: true, traceId: "t" } }))js"),
              expected);
}

TEST_F(RequestTest, WantsEachRequiredField) {
    const std::vector<std::pair<std::string, std::string>> fields{{"method", "a string"},
                                                                  {"path", "a string"},
                                                                  {"queryParams", "an object"},
                                                                  {"headers", "an object"}};
    for (const auto& [field, expected] : fields) {
        EXPECT_EQ(failure("(() => { const r = {" + std::string(least) + "}; delete r." + field +
                          "; return r; })()"),
                  field + ": expected " + expected + ", found undefined");
    }
}

TEST_F(RequestTest, TakesTextsOfMapsOnly) {
    EXPECT_EQ(failure(R"(({ method: "GET", path: "", queryParams: { n: 1 }, headers: {} }))"),
              "queryParams.n: expected a string, found a number");
    EXPECT_EQ(failure(R"(({ method: "GET", path: "", queryParams: {}, headers: { n: null } }))"),
              "headers.n: expected a string, found null");
}

TEST_F(RequestTest, KnowsSevenMethodsExactly) {
    const std::vector<std::pair<std::string, HTTPMethod>> methods{
        {"GET", HTTPMethod::GET},         {"PUT", HTTPMethod::PUT},
        {"POST", HTTPMethod::POST},       {"PATCH", HTTPMethod::PATCH},
        {"DELETE", HTTPMethod::DELETE},   {"HEAD", HTTPMethod::HEAD},
        {"OPTIONS", HTTPMethod::OPTIONS},
    };
    ASSERT_EQ(methods.size(), httpMethodTexts.size());
    for (std::size_t index = 0; index < methods.size(); ++index) {
        const auto& [text, method] = methods[index];
        EXPECT_EQ(httpMethodTexts[index], (std::pair{method, std::string_view(text)}));
        const auto decoded =
            decode("({ ...({" + std::string(least) + "}), method: '" + text + "' })");
        ASSERT_TRUE(decoded) << text;
        EXPECT_EQ(decoded->method, method);
    }
    for (const char* wrong : {"get", "Get", "TRACE", "", " GET"}) {
        EXPECT_EQ(failure("({ ...({" + std::string(least) + "}), method: '" + wrong + "' })"),
                  R"(method: expected one of "GET", "PUT", "POST", "PATCH", "DELETE", "HEAD", )"
                  R"("OPTIONS", found another string)")
            << wrong;
    }
}

TEST_F(RequestTest, KnowsThreePrioritiesExactly) {
    EXPECT_EQ(decode(with("priority: 'high'"))->priority, RequestPriority::high);
    EXPECT_EQ(decode(with("priority: 'normal'"))->priority, RequestPriority::normal);
    EXPECT_EQ(decode(with("priority: 'background'"))->priority, RequestPriority::background);
    EXPECT_EQ(decode(with("priority: null"))->priority, std::nullopt);
    EXPECT_EQ(failure(with("priority: 'High'")),
              R"(priority: expected one of "high", "normal", "background", found another string)");
}

TEST_F(RequestTest, RefusesAWrongKindInEveryOptionalField) {
    EXPECT_EQ(failure(with("host: 1")), "host: expected a string, found a number");
    EXPECT_EQ(failure(with("body: {}")), "body: expected a string, found an object");
    EXPECT_EQ(failure(with("bodyData: 'x'")),
              "bodyData: expected an ArrayBuffer or a typed array, found a string");
    EXPECT_EQ(failure(with("boundary: true")), "boundary: expected a string, found a boolean");
    EXPECT_EQ(failure(with("observabilityContext: { rootId: 1 }")),
              "observabilityContext.rootId: expected a string, found a number");
}

TEST_F(RequestTest, AResponseIsStatusHeadersAndBody) {
    EXPECT_EQ(seen(Response{201, {{"B", "2"}, {"A", "1"}}, "text"}),
              R"({"status":201,"headers":{"A":"1","B":"2"},"body":"text"})");
    EXPECT_EQ(seen(Response{204, {}, std::nullopt}), R"({"status":204,"headers":{}})");
    EXPECT_EQ(seen(Response{-1, {}, ""}), R"({"status":-1,"headers":{},"body":""})");
}

TEST_F(RequestTest, ANetworkErrorIsATypeAndPerhapsAMessage) {
    EXPECT_EQ(seen(NetworkError{NetworkErrorType::timeout, std::nullopt}), R"({"type":"timeout"})");
    EXPECT_EQ(seen(NetworkError{NetworkErrorType::unspecified, "lost"}),
              R"({"type":"unspecified","message":"lost"})");
    EXPECT_NE((NetworkError{NetworkErrorType::timeout, "lost"}),
              (NetworkError{NetworkErrorType::unspecified, "lost"}));
    EXPECT_NE((NetworkError{NetworkErrorType::timeout, "lost"}),
              (NetworkError{NetworkErrorType::timeout, std::nullopt}));
}

} // namespace
