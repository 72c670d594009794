// The errors of draft managers and draft queues: cases in order, each with what it carries.

#include <zem/Core/DraftManagerNativeError.h>
#include <zem/Core/DraftQueueNativeError.h>

#include <gtest/gtest.h>

#include <Core/Records.h>
#include <string>
#include <variant>
#include <vector>

namespace {

using namespace zem;

const tessel::DecodingError decodingError{".state", "expected a string, found a number"};

TEST(DraftManagerNativeError, CarriesWhatThereIsToSay) {
    const auto decoding = DraftManagerNativeError::decodingPromiseError(decodingError);
    EXPECT_EQ(decoding.value.index(), 0u);
    EXPECT_EQ(std::get<DraftManagerNativeError::DecodingPromiseError>(decoding.value).error,
              decodingError);
    const auto encoding = DraftManagerNativeError::errorEncodingRequest("a");
    EXPECT_EQ(encoding.value.index(), 1u);
    EXPECT_EQ(std::get<DraftManagerNativeError::ErrorEncodingRequest>(encoding.value).message, "a");
    const auto rejection = DraftManagerNativeError::promiseRejection("b");
    EXPECT_EQ(rejection.value.index(), 2u);
    EXPECT_EQ(std::get<DraftManagerNativeError::PromiseRejection>(rejection.value).message, "b");
    const auto unknown = DraftManagerNativeError::unknownError("c");
    EXPECT_EQ(unknown.value.index(), 3u);
    EXPECT_EQ(std::get<DraftManagerNativeError::UnknownError>(unknown.value).message, "c");
    EXPECT_EQ(std::variant_size_v<decltype(unknown.value)>, 4u);
}

TEST(DraftManagerNativeError, IsEqualByCaseAndWhatItCarries) {
    test::expectAllDiffer<DraftManagerNativeError>({
        DraftManagerNativeError::decodingPromiseError(decodingError),
        DraftManagerNativeError::decodingPromiseError({".id", decodingError.message}),
        DraftManagerNativeError::decodingPromiseError({decodingError.path, "other"}),
        DraftManagerNativeError::errorEncodingRequest("a"),
        DraftManagerNativeError::errorEncodingRequest("b"),
        DraftManagerNativeError::promiseRejection("a"),
        DraftManagerNativeError::promiseRejection("b"),
        DraftManagerNativeError::unknownError("a"),
        DraftManagerNativeError::unknownError("b"),
    });
}

TEST(DraftQueueNativeError, CarriesWhatThereIsToSay) {
    const auto decoding = DraftQueueNativeError::decodingPromiseError(decodingError);
    EXPECT_EQ(decoding.value.index(), 0u);
    EXPECT_EQ(std::get<DraftQueueNativeError::DecodingPromiseError>(decoding.value).error,
              decodingError);
    const auto encoding = DraftQueueNativeError::errorEncodingRequest("a");
    EXPECT_EQ(encoding.value.index(), 1u);
    EXPECT_EQ(std::get<DraftQueueNativeError::ErrorEncodingRequest>(encoding.value).message, "a");
    const auto rejection = DraftQueueNativeError::promiseRejection("b");
    EXPECT_EQ(rejection.value.index(), 2u);
    EXPECT_EQ(std::get<DraftQueueNativeError::PromiseRejection>(rejection.value).message, "b");
    EXPECT_EQ(std::variant_size_v<decltype(rejection.value)>, 3u);
}

TEST(DraftQueueNativeError, IsEqualByCaseAndWhatItCarries) {
    test::expectAllDiffer<DraftQueueNativeError>({
        DraftQueueNativeError::decodingPromiseError(decodingError),
        DraftQueueNativeError::decodingPromiseError({".id", decodingError.message}),
        DraftQueueNativeError::decodingPromiseError({decodingError.path, "other"}),
        DraftQueueNativeError::errorEncodingRequest("a"),
        DraftQueueNativeError::errorEncodingRequest("b"),
        DraftQueueNativeError::promiseRejection("a"),
        DraftQueueNativeError::promiseRejection("b"),
    });
}

} // namespace
