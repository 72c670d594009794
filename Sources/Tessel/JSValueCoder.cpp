#include <zem/Tessel/JSValueCoder.h>

#include <cmath>

namespace tessel {

using zem::js::Local;
using zem::js::Result;

DecodingError JSValueDecoder::threw() {
    return {{}, "reading it threw an exception"};
}

Decoded<JSValueDecoder> JSValueDecoder::view(const Result<Local>& result) const {
    if (!result) {
        return std::unexpected(threw());
    }
    if (depth == deepestNesting) {
        return std::unexpected(DecodingError::tooDeep());
    }
    return JSValueDecoder(*this, *result);
}

Decoded<std::size_t> JSValueDecoder::count() const {
    const Result<unsigned> length = entered->length(value);
    if (!length) {
        return std::unexpected(threw());
    }
    return *length;
}

Decoded<JSValueDecoder> JSValueDecoder::element(std::size_t index) const {
    return view(entered->getAt(value, static_cast<unsigned>(index)));
}

Decoded<JSValueDecoder> JSValueDecoder::field(const FieldName& name) const {
    return view(entered->get(value, name.engine));
}

Decoded<JSValueDecoder> JSValueDecoder::field(std::string_view name) const {
    return view(entered->get(value, name));
}

Decoded<Any> JSValueDecoder::any() const {
    const Result<std::optional<std::string>> json = entered->stringify(value);
    if (!json) {
        return std::unexpected(DecodingError{{}, "it cannot be written as JSON"});
    }
    if (!*json) {
        return std::unexpected(DecodingError::mismatch(Coding<Any>::expected, kind()));
    }
    return parse(**json);
}

Local JSValueEncoder::any(const Any& value) {
    switch (value.kind()) {
    case boost::json::kind::null:
        return null();
    case boost::json::kind::bool_:
        return boolean(value.get_bool());
    case boost::json::kind::int64:
    case boost::json::kind::uint64:
        return number(value.to_number<double>());
    case boost::json::kind::double_:
        return std::isfinite(value.get_double()) ? number(value.get_double()) : null();
    case boost::json::kind::string:
        return text(std::string_view(value.get_string()));
    default:
        // Whole at once through the engine's own parser: the bulk lane.
        return entered.parseJSON(toText(value)).value_or(entered.undefined());
    }
}

Decoded<zem::platform::Bytes> Coding<zem::platform::Bytes>::decode(const JSValueDecoder& value) {
    const auto bytes = value.scope().bytes(value.local());
    if (!bytes) {
        return std::unexpected(DecodingError::mismatch(expected, value.kind()));
    }
    return zem::platform::Bytes(bytes->begin(), bytes->end());
}

} // namespace tessel
