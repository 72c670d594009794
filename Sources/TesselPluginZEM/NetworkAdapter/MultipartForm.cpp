#include <zem/TesselPluginZEM/NetworkAdapter/MultipartForm.h>

#include <fmt/format.h>

namespace zem {

namespace {

void append(platform::Bytes& bytes, std::string_view text) {
    bytes.insert(bytes.end(), text.begin(), text.end());
}

/// A text is a part of one piece.
DataFieldData partOf(MultipartFormField field, std::string_view boundary) {
    if (const auto* text = std::get_if<MultipartFormField::Text>(&field.value)) {
        return {textFieldString(text->name, text->value, boundary), {}, {}};
    }
    auto& data = std::get<MultipartFormField::Data>(field.value);
    return dataFieldData(data.name, data.filename, std::move(data.value), data.type, boundary);
}

} // namespace

std::expected<std::vector<MultipartFormField>, FormFieldError>
MultiPartBody::fields(BinaryStore& binaryStore) const {
    std::vector<MultipartFormField> resolved;
    resolved.reserve(stringFields.size() + dataFields.size());
    for (const auto& field : stringFields) {
        resolved.push_back(MultipartFormField::text(field.name, field.value));
    }
    for (const auto& field : dataFields) {
        auto bytes = binaryStore.cachedData(field.value.handle);
        if (!bytes) {
            return std::unexpected(FormFieldError::noCachedData);
        }
        resolved.push_back(MultipartFormField::data(field.name, std::move(*bytes), field.value.name,
                                                    field.value.type));
    }
    return resolved;
}

std::string textFieldString(std::string_view name, std::string_view value,
                            std::string_view boundary) {
    return fmt::format("--{}\r\n"
                       "Content-Disposition: form-data; name=\"{}\"\r\n"
                       "Content-Type: text/plain; charset=ISO-8859-1\r\n"
                       "Content-Transfer-Encoding: 8bit\r\n"
                       "\r\n"
                       "{}\r\n",
                       boundary, name, value);
}

DataFieldData dataFieldData(std::string_view name, std::string_view filename, platform::Bytes value,
                            std::string_view mimeType, std::string_view boundary) {
    return {fmt::format("--{}\r\n"
                        "Content-Disposition: form-data; name=\"{}\"; filename=\"{}\"\r\n"
                        "Content-Type: {}\r\n"
                        "\r\n",
                        boundary, name, filename, mimeType),
            std::move(value), "\r\n"};
}

Request multipartFormRequest(const Request& received, std::vector<MultipartFormField> fields,
                             std::string boundary) {
    std::vector<DataFieldData> parts;
    parts.reserve(fields.size());
    // No line end follows it: servers expect it so.
    const std::string closing = fmt::format("--{}--", boundary);
    std::size_t size = closing.size();
    for (auto& field : fields) {
        parts.push_back(partOf(std::move(field), boundary));
        const DataFieldData& part = parts.back();
        size += part.head.size() + part.value.size() + part.tail.size();
    }
    platform::Bytes form;
    form.reserve(size);
    for (DataFieldData& part : parts) {
        append(form, part.head);
        form.insert(form.end(), part.value.begin(), part.value.end());
        append(form, part.tail);
        part.value = {};
    }
    append(form, closing);

    Request request;
    request.method = received.method;
    request.path = received.path;
    request.queryParams = received.queryParams;
    request.headers = received.headers;
    request.bodyData = std::move(form);
    request.boundary = std::move(boundary);
    request.priority = received.priority;
    return request;
}

} // namespace zem
