#include <zem/Core/DataServiceError.h>

namespace zem {

namespace {

struct Description {
    std::string operator()(const DataServiceError::ExecuteAdapter& error) const {
        return "executeAdapter error - " + error.message;
    }
    std::string operator()(const DataServiceError::ExecuteAdapterJSON& error) const {
        return "executeAdapter error - " + error.message;
    }
    std::string operator()(DataServiceError::ExecuteAdapterTimeout) const {
        return "executeAdapter error - .executeAdapterTimeout";
    }
    std::string operator()(DataServiceError::BinaryStoreUnavailable) const {
        return "data service error - .binaryStoreUnavailable";
    }
    std::string operator()(DataServiceError::Unknown) const {
        return "executeAdapter error - .unknown";
    }
};

} // namespace

std::string DataServiceError::errorDescription() const {
    return std::visit(Description{}, value);
}

} // namespace zem
