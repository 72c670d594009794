#include <zem/Core/CustomActionResult.h>

#include <gtest/gtest.h>

#include <Core/Records.h>
#include <optional>
#include <string>

namespace {

using namespace zem;
using test::expectAllDiffer;
using test::expectCrossesAs;

TEST(CustomActionResult, OfASuccessIsItsTypeAlone) {
    expectCrossesAs(test::makeContext(),
                    CustomActionResult{CustomActionResultType::success, std::nullopt},
                    R"({"type":"SUCCESS"})");
}

TEST(CustomActionResult, CrossesWithItsFieldsInOrder) {
    const js::Context context = test::makeContext();
    expectCrossesAs(
        context,
        CustomActionResult{CustomActionResultType::failure,
                           CustomActionError{CustomActionErrorType::networkError, "offline"}},
        R"({"type":"FAILURE","error":{"type":"NETWORK_ERROR","message":"offline"}})");
    expectCrossesAs(context,
                    CustomActionResult{CustomActionResultType::success,
                                       CustomActionError{CustomActionErrorType::clientError, ""}},
                    R"({"type":"SUCCESS","error":{"type":"CLIENT_ERROR","message":""}})");
}

TEST(CustomActionResult, ReadsNullAndUndefinedAsAbsent) {
    const js::Context context = test::makeContext();
    const CustomActionResult expected{CustomActionResultType::failure, std::nullopt};
    for (const char* nothing : {"null", "undefined"}) {
        EXPECT_EQ(test::decoded<CustomActionResult>(
                      context, std::string("({ type: 'FAILURE', error: ") + nothing + " })"),
                  expected);
    }
}

TEST(CustomActionResult, IsEqualFieldByField) {
    const CustomActionError error{CustomActionErrorType::clientError, "a"};
    expectAllDiffer<CustomActionResult>({
        {CustomActionResultType::failure, error},
        {CustomActionResultType::success, error},
        {CustomActionResultType::failure, std::nullopt},
        {CustomActionResultType::failure,
         CustomActionError{CustomActionErrorType::networkError, "a"}},
        {CustomActionResultType::failure,
         CustomActionError{CustomActionErrorType::clientError, "b"}},
    });
}

TEST(CustomActionError, CrossesWithItsFieldsInOrder) {
    expectCrossesAs(
        test::makeContext(),
        CustomActionError{CustomActionErrorType::clientError, "Unable to decode draft item"},
        R"({"type":"CLIENT_ERROR","message":"Unable to decode draft item"})");
}

} // namespace
