#include <zem/Core/DataServiceError.h>

#include <gtest/gtest.h>

namespace {

using zem::DataServiceError;

TEST(DataServiceError, DescribesEachCase) {
    EXPECT_EQ(DataServiceError::executeAdapter("no such record").errorDescription(),
              "executeAdapter error - no such record");
    EXPECT_EQ(DataServiceError::executeAdapterJSON(R"({"code":4})").errorDescription(),
              R"(executeAdapter error - {"code":4})");
    EXPECT_EQ(DataServiceError::executeAdapterTimeout().errorDescription(),
              "executeAdapter error - .executeAdapterTimeout");
    EXPECT_EQ(DataServiceError::binaryStoreUnavailable().errorDescription(),
              "data service error - .binaryStoreUnavailable");
    EXPECT_EQ(DataServiceError::unknown().errorDescription(), "executeAdapter error - .unknown");
}

TEST(DataServiceError, IsEqualByCaseAndMessage) {
    EXPECT_EQ(DataServiceError::executeAdapter("a"), DataServiceError::executeAdapter("a"));
    EXPECT_NE(DataServiceError::executeAdapter("a"), DataServiceError::executeAdapter("b"));
    EXPECT_NE(DataServiceError::executeAdapter("a"), DataServiceError::executeAdapterJSON("a"));
    EXPECT_NE(DataServiceError::unknown(), DataServiceError::executeAdapterTimeout());
}

} // namespace
