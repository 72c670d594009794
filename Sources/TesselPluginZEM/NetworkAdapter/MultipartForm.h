#pragma once

// Uploads of files: the runtime lists texts and handles of files, the request carries a multipart
// form with the files' bytes.

#include <zem/Core/BinaryStore.h>
#include <zem/Platform/Bytes.h>
#include <zem/Tessel/Coding.h>
#include <zem/TesselPluginZEM/NetworkAdapter/Request.h>

#include <boost/describe.hpp>

#include <cstddef>
#include <expected>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace zem {

struct MultipartStringField {
    std::string name;
    std::string value;

    bool operator==(const MultipartStringField&) const = default;
};
BOOST_DESCRIBE_STRUCT(MultipartStringField, (), (name, value))

/// A file in the binary store, and how the form announces it.
struct MultipartFileHandle {
    std::string handle;
    std::string name; ///< of the file
    std::string type; ///< its MIME type

    bool operator==(const MultipartFileHandle&) const = default;
};
BOOST_DESCRIBE_STRUCT(MultipartFileHandle, (), (handle, name, type))

struct MultipartDataField {
    std::string name;
    MultipartFileHandle value;

    bool operator==(const MultipartDataField&) const = default;
};
BOOST_DESCRIBE_STRUCT(MultipartDataField, (), (name, value))

/// A field with what it is sent as.
struct MultipartFormField {
    struct Text {
        std::string name;
        std::string value;
        bool operator==(const Text&) const = default;
    };
    struct Data {
        std::string name;
        platform::Bytes value;
        std::string filename;
        std::string type; ///< MIME
        bool operator==(const Data&) const = default;
    };

    static MultipartFormField text(std::string name, std::string value) {
        return {Text{std::move(name), std::move(value)}};
    }
    static MultipartFormField data(std::string name, platform::Bytes value, std::string filename,
                                   std::string type) {
        return {Data{std::move(name), std::move(value), std::move(filename), std::move(type)}};
    }

    bool operator==(const MultipartFormField&) const = default;

    std::variant<Text, Data> value;
};

enum class FormFieldError {
    noCachedData ///< the binary store holds no bytes for a handle
};

/// The body of the runtime's request: an object whose "namedEntries" are string fields and data
/// fields, in any order.
struct MultiPartBody {
    std::vector<MultipartStringField> stringFields;
    std::vector<MultipartDataField> dataFields;

    /// The texts first, then the files, each in their order: the form sends them so, whatever their
    /// order in "namedEntries". Stops at the first file that the store does not hold.
    std::expected<std::vector<MultipartFormField>, FormFieldError>
    fields(BinaryStore& binaryStore) const;

    bool operator==(const MultiPartBody&) const = default;
};

// Names, file names and values stand in the form as they are, without escapes.

/// A text field's part of the form. The charset that it declares is not the one of its bytes, which
/// are UTF-8: servers expect it so.
std::string textFieldString(std::string_view name, std::string_view value,
                            std::string_view boundary);

/// A data field's part of the form, in pieces that follow one another: a file may be large, and is
/// copied once, into the form.
struct DataFieldData {
    std::string head;
    platform::Bytes value;
    std::string_view tail;
};
DataFieldData dataFieldData(std::string_view name, std::string_view filename, platform::Bytes value,
                            std::string_view mimeType, std::string_view boundary);

/// `received` with the form in `bodyData`, and `boundary`. It has neither host nor body nor
/// observability context: an upload goes to the network adapter's default host, untraced. Each
/// file's bytes are let go of when they are in the form, so that a file is in memory twice at most.
Request multipartFormRequest(const Request& received, std::vector<MultipartFormField> fields,
                             std::string boundary);

} // namespace zem

namespace tessel {

template <>
struct Coding<zem::MultiPartBody> {
    static constexpr std::string_view expected = "an object";

    template <class D>
    static Decoded<zem::MultiPartBody> decode(const D& value) {
        static const FieldName namedEntries("namedEntries");
        if (const Kind kind = value.kind(); kind != Kind::object) {
            return std::unexpected(DecodingError::mismatch(expected, kind));
        }
        const Decoded<D> list = value.field(namedEntries);
        if (!list) {
            return std::unexpected(list.error());
        }
        if (!list->isArray()) {
            return std::unexpected(
                DecodingError::mismatch("an array", list->kind()).inField("namedEntries"));
        }
        return decodeEntries(*list);
    }

  private:
    template <class D>
    static Decoded<zem::MultiPartBody> decodeEntries(const D& list) {
        const Decoded<std::size_t> count = list.count();
        if (!count) {
            return std::unexpected(count.error());
        }
        zem::MultiPartBody body;
        for (std::size_t index = 0; index < *count; ++index) {
            const Decoded<D> element = list.element(index);
            if (!element) {
                return std::unexpected(element.error());
            }
            if (auto text = tessel::decode<zem::MultipartStringField>(*element)) {
                body.stringFields.push_back(std::move(*text));
            } else if (auto data = tessel::decode<zem::MultipartDataField>(*element)) {
                body.dataFields.push_back(std::move(*data));
            } else {
                return std::unexpected(DecodingError{{}, "Unable to decode body field"});
            }
        }
        return body;
    }
};

} // namespace tessel
