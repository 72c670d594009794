// The priming errors of a runtime, as native code reads and writes them.

#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Scope.h>
#include <zem/Priming/PrimingSession.h>
#include <zem/Tessel/JSON.h>
#include <zem/Tessel/JSValueCoder.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <cstddef>
#include <string>

namespace {

using namespace zem;
using Code = PrimingError::ErrorCode;

class PrimingErrorTest : public testing::Test {
  protected:
    tessel::Decoded<PrimingError> decoded(const std::string& script) const {
        return context.perform([&](js::Scope& scope) {
            return tessel::decodeValue<PrimingError>(
                scope, scope.evaluate("(" + script + ")", "test.js").value());
        });
    }

    std::string failure(const std::string& script) const {
        const auto error = decoded(script);
        return error ? "none" : error.error().description();
    }

    const js::Context context = test::makeContext();
};

TEST_F(PrimingErrorTest, ReadsTheFiveCodes) {
    const auto codeOf = [&](const std::string& text) {
        return decoded("{ code: '" + text + "', message: '', ids: [] }").value().code;
    };
    EXPECT_EQ(codeOf("not-found"), Code::notFound);
    EXPECT_EQ(codeOf("precondition-error"), Code::preconditionError);
    EXPECT_EQ(codeOf("service-unavailable"), Code::serviceUnavailable);
    EXPECT_EQ(codeOf("canceled"), Code::canceled);
    EXPECT_EQ(codeOf("unknown"), Code::unknown);
}

TEST_F(PrimingErrorTest, HasTheCodesInTheirOrder) {
    std::string texts;
    std::size_t position = 0;
    for (const auto& [code, text] : primingErrorCodeTexts) {
        EXPECT_EQ(static_cast<std::size_t>(code), position++);
        texts += std::string(text) + " ";
    }
    EXPECT_EQ(texts, "not-found precondition-error service-unavailable canceled unknown ");
}

TEST_F(PrimingErrorTest, ReadsEveryOtherTextAsUnknown) {
    for (const char* text : {"Not-Found", "notFound", "not-found ", "cancelled", ""}) {
        const auto error =
            decoded("{ code: '" + std::string(text) + "', message: 'm', ids: ['1'] }");
        EXPECT_EQ(error.value(), (PrimingError{Code::unknown, "m", {"1"}})) << text;
    }
}

TEST_F(PrimingErrorTest, ReadsMessageAndIds) {
    EXPECT_EQ(decoded("{ code: 'canceled', message: 'stopped', ids: ['a', 'b'], more: 1 }").value(),
              (PrimingError{Code::canceled, "stopped", {"a", "b"}}));
}

TEST_F(PrimingErrorTest, RefusesWhatIsMissingOrOfAnotherKind) {
    EXPECT_EQ(failure("{ code: 5, message: '', ids: [] }"),
              "code: expected a string, found a number");
    EXPECT_EQ(failure("{ message: '', ids: [] }"), "code: expected a string, found undefined");
    EXPECT_EQ(failure("{ code: 'unknown', ids: [] }"),
              "message: expected a string, found undefined");
    EXPECT_EQ(failure("{ code: 'unknown', message: '' }"),
              "ids: expected an array, found undefined");
    EXPECT_EQ(failure("{ code: 'unknown', message: '', ids: ['a', 1] }"),
              "ids[1]: expected a string, found a number");
    EXPECT_EQ(failure("'no object'"), "expected an object, found a string");
}

TEST_F(PrimingErrorTest, WritesItsCode) {
    EXPECT_EQ(tessel::toText(tessel::toAny(PrimingError{Code::serviceUnavailable, "m", {"1"}})),
              R"({"code":"service-unavailable","message":"m","ids":["1"]})");
}

} // namespace
