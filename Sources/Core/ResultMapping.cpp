#include <zem/Core/Private/ResultMapping.h>
#include <zem/Tessel/JSON.h>

#include <utility>

namespace zem {

namespace {

bool isText(const boost::json::value* value) {
    return value != nullptr && value->is_string();
}

/// Absent when it is another error.
std::optional<DataServiceError> networkError(const Dictionary& error) {
    const auto* type = error.if_contains("errorType");
    const auto* message = error.if_contains("message");
    if (!isText(type) || type->get_string() != networkErrorType || !isText(message)) {
        return std::nullopt;
    }
    return DataServiceError::executeAdapter("Network error: " + std::string(message->get_string()));
}

/// Absent when it holds no error that could be read.
std::optional<DataServiceError> readError(const boost::json::value& error) {
    if (const auto* text = error.if_string()) {
        return DataServiceError::executeAdapter(std::string(*text));
    }
    if (const auto* dictionary = error.if_object()) {
        if (auto read = networkError(*dictionary)) {
            return read;
        }
    }
    // A number, a boolean or null says nothing about what went wrong.
    if (error.is_object() || error.is_array()) {
        return DataServiceError::executeAdapterJSON(tessel::toText(error));
    }
    return std::nullopt;
}

/// Where the text that begins with a quotation mark at `at` ends, behind the second one.
std::size_t endOfText(std::string_view json, std::size_t at) {
    do {
        at += json[at] == '\\' ? 2 : 1;
    } while (json[at] != '"');
    return at + 1;
}

/// Calls `take` with the key, in its quotation marks, and the value of each member of an object's
/// text, which is the engine's: well-formed, and without spaces.
template <class Take>
void forEachMember(std::string_view json, Take take) {
    std::size_t keyEnd = 0;
    std::size_t begin = 1;
    int depth = 0;
    for (std::size_t at = 0; at < json.size();) {
        const char character = json[at];
        if (character == '"') {
            at = endOfText(json, at);
            if (keyEnd == 0) {
                keyEnd = at;
            }
            continue;
        }
        depth += character == '{' || character == '[' ? 1 : 0;
        depth -= character == '}' || character == ']' ? 1 : 0;
        if (keyEnd != 0 && (depth == 0 || (depth == 1 && character == ','))) {
            take(json.substr(begin, keyEnd - begin), json.substr(keyEnd + 1, at - keyEnd - 1));
            begin = at + 1;
            keyEnd = 0;
        }
        ++at;
    }
}

/// A network error whose text is too deep as a whole; null for any other error.
tessel::Any readNetworkError(std::string_view json) {
    Dictionary error;
    forEachMember(json, [&](std::string_view key, std::string_view value) {
        if (key == R"("errorType")") {
            error["errorType"] = tessel::parse(value).value_or(nullptr);
        } else if (key == R"("message")") {
            error["message"] = tessel::parse(value).value_or(nullptr);
        }
    });
    return networkError(error) ? tessel::Any(std::move(error)) : tessel::Any(nullptr);
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

namespace {

/// The result of an answer whose text is too deep as a whole: each member by itself.
DataServiceResult mapMembers(std::string_view json, Fallback fallback) {
    Dictionary answer;
    std::optional<DataServiceError> failure;
    forEachMember(json, [&](std::string_view key, std::string_view text) {
        const bool isData = key == R"("data")";
        if (!isData && key != R"("error")" && key != R"("errors")") {
            return;
        }
        tessel::Decoded<tessel::Any> value = tessel::parse(text);
        if (!value && text.starts_with('{')) {
            if (isData) {
                failure = dataNotCarriedOver(value.error().description());
            } else {
                value = readNetworkError(text);
            }
        }
        answer[key.substr(1, key.size() - 2)] = std::move(value).value_or(nullptr);
    });
    if (failure) {
        return std::unexpected(*std::move(failure));
    }
    return funcMap::mapResult(std::move(answer), fallback);
}

} // namespace

DataServiceResult mapAnswer(const AnswerText& answer, Fallback fallback) {
    if (!answer) {
        return fallback();
    }
    tessel::Decoded<tessel::Any> value = tessel::parse(*answer);
    if (!value && answer->starts_with('{')) {
        return mapMembers(*answer, fallback);
    }
    if (!value || !value->is_object()) {
        return fallback();
    }
    return funcMap::mapResult(std::move(value->get_object()), fallback);
}

DataServiceError dataNotCarriedOver(const std::string& why) {
    return DataServiceError::executeAdapter("the answer's data cannot be carried over: " + why);
}

DataServiceResult subscriptionFallback() {
    return std::unexpected(DataServiceError::unknown());
}

DataServiceResult oneShotFallback() {
    return Dictionary();
}

} // namespace zem
