#include <zem/Core/Private/ResultMapping.h>
#include <zem/Tessel/JSON.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace zem;

/// The result for a subscription of the answer with this JSON text.
DataServiceResult mapped(std::string_view json, Fallback fallback = subscriptionFallback) {
    return mapAnswer(std::string(json), fallback);
}

DataServiceResult failed(DataServiceError error) {
    return std::unexpected(std::move(error));
}

TEST(ResultMapping, TakesTheDataWhateverStandsBesideIt) {
    const auto result = mapped(R"({"error":"no","data":{"b":1,"a":[2.5,null]}})");
    ASSERT_TRUE(result);
    EXPECT_EQ(tessel::toText(*result), R"({"b":1,"a":[2.5,null]})");
}

TEST(ResultMapping, PassesOverDataThatIsNoDictionary) {
    for (const char* data : {"[1]", "\"text\"", "1", "true", "null"}) {
        EXPECT_EQ(mapped(std::string(R"({"data":)") + data + R"(,"error":"no"})"),
                  failed(DataServiceError::executeAdapter("no")))
            << data;
    }
}

TEST(ResultMapping, TakesATextAsItIs) {
    EXPECT_EQ(mapped(R"({"error":"not found"})"),
              failed(DataServiceError::executeAdapter("not found")));
    EXPECT_EQ(mapped(R"({"errors":"several"})"),
              failed(DataServiceError::executeAdapter("several")));
}

TEST(ResultMapping, LooksAtErrorsOnlyWithoutAnError) {
    EXPECT_EQ(mapped(R"({"errors":"second","error":"first"})"),
              failed(DataServiceError::executeAdapter("first")));
    // The key decides, not what it holds.
    EXPECT_EQ(mapped(R"({"error":null,"errors":"second"})"), failed(DataServiceError::unknown()));
}

TEST(ResultMapping, NamesNetworkErrors) {
    const auto result =
        mapped(R"({"error":{"errorType":"networkAdapterError","message":"timeout"}})");
    EXPECT_EQ(result, failed(DataServiceError::executeAdapter("Network error: timeout")));
    EXPECT_EQ(result.error().errorDescription(), "executeAdapter error - Network error: timeout");
}

TEST(ResultMapping, GivesOtherErrorsAsJSON) {
    for (const char* error :
         {R"({"errorType":"networkAdapterError"})", R"({"errorType":"other","message":"m"})",
          R"({"errorType":"networkAdapterError","message":5})", R"({"errorType":7,"message":"m"})",
          R"({"message":"m"})", R"([{"code":4},"b"])", "{}", "[]"}) {
        EXPECT_EQ(mapped(std::string(R"({"error":)") + error + "}"),
                  failed(DataServiceError::executeAdapterJSON(error)))
            << error;
    }
}

TEST(ResultMapping, FallsBackWhenThereIsNothingToRead) {
    for (const char* answer :
         {"{}", R"({"data":[]})", R"({"error":null})", R"({"error":5})", R"({"errors":true})"}) {
        EXPECT_EQ(mapped(answer), failed(DataServiceError::unknown())) << answer;
        EXPECT_EQ(mapped(answer, oneShotFallback), DataServiceResult(Dictionary())) << answer;
    }
    EXPECT_EQ(mapAnswer(std::nullopt, subscriptionFallback), failed(DataServiceError::unknown()));
    EXPECT_EQ(mapAnswer(std::nullopt, oneShotFallback), DataServiceResult(Dictionary()));
}

} // namespace
