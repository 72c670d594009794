#include <zem/Core/Private/ResultMapping.h>
#include <zem/Tessel/JSON.h>

#include <utility>

namespace zem {

namespace {

bool isText(const boost::json::value* value) {
    return value != nullptr && value->is_string();
}

/// Absent when it holds no error that could be read.
std::optional<DataServiceError> readError(const boost::json::value& error) {
    if (const auto* text = error.if_string()) {
        return DataServiceError::executeAdapter(std::string(*text));
    }
    if (const auto* dictionary = error.if_object()) {
        const auto* type = dictionary->if_contains("errorType");
        const auto* message = dictionary->if_contains("message");
        if (isText(type) && type->get_string() == "networkAdapterError" && isText(message)) {
            return DataServiceError::executeAdapter("Network error: " +
                                                    std::string(message->get_string()));
        }
    }
    // A number, a boolean or null says nothing about what went wrong.
    if (error.is_object() || error.is_array()) {
        return DataServiceError::executeAdapterJSON(tessel::toText(error));
    }
    return std::nullopt;
}

} // namespace

DataServiceResult funcMap::mapResult(Dictionary answer, Fallback fallback) {
    if (auto* data = answer.if_contains("data"); data != nullptr && data->is_object()) {
        return std::move(data->get_object());
    }
    const boost::json::value* error = answer.if_contains("error");
    if (error == nullptr) {
        error = answer.if_contains("errors");
    }
    if (error != nullptr) {
        if (auto read = readError(*error)) {
            return std::unexpected(*std::move(read));
        }
    }
    return fallback();
}

DataServiceResult mapAnswer(const AnswerText& answer, Fallback fallback) {
    if (!answer) {
        return fallback();
    }
    tessel::Decoded<tessel::Any> value = tessel::parse(*answer);
    if (!value || !value->is_object()) {
        return fallback();
    }
    return funcMap::mapResult(std::move(value->get_object()), fallback);
}

DataServiceResult subscriptionFallback() {
    return std::unexpected(DataServiceError::unknown());
}

DataServiceResult oneShotFallback() {
    return Dictionary();
}

} // namespace zem
