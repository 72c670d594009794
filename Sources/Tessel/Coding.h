#pragma once

// How values cross the bridge: `Coding<T>` says it once for a type, and the decoders and encoders
// of engine values and of JSON both follow it.
//
// A decoder D is a view of one value: kind(), boolean(), number(), integer(), text(), field(name),
// entries(visit), isArray(), count(), element(index). An encoder E makes outputs: null(),
// boolean(), number(), integer(), text(), and object() and array() builders.
//
// Records are described by one BOOST_DESCRIBE_STRUCT line that names their fields once; a name that
// had to take a trailing underscore in C++ (`delete_`) crosses without it. Enumerations with raw
// texts specialise RawTexts; anything else specialises Coding.

#include <zem/JavaScript/Name.h>
#include <zem/JavaScript/Value.h>
#include <zem/Tessel/DecodingError.h>

#include <boost/describe.hpp>
#include <boost/mp11.hpp>

#include <algorithm>
#include <cmath>
#include <concepts>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace tessel {

using zem::js::Kind;

/// Specialised for each type that crosses:
///   static constexpr std::string_view expected;  // "a string", for error texts
///   template <class D> static Decoded<T> decode(const D& value);
///   template <class E> static typename E::Output encode(E& encoder, const T& value);
template <class T>
struct Coding;

template <class T, class D>
Decoded<T> decode(const D& value) {
    return Coding<T>::decode(value);
}

template <class T, class E>
typename E::Output encode(E& encoder, const T& value) {
    return Coding<T>::encode(encoder, value);
}

/// A field's name in the forms that the decoders and encoders want it in. A static beside its use.
struct FieldName {
    explicit FieldName(std::string_view name)
        : text(name.ends_with('_') ? name.substr(0, name.size() - 1) : name)
        , engine(text) {}
    const std::string_view text;
    const zem::js::Name engine;
};

// --- Scalars

template <>
struct Coding<bool> {
    static constexpr std::string_view expected = "a boolean";

    // Strict: 0 and 1 are numbers.
    template <class D>
    static Decoded<bool> decode(const D& value) {
        if (const Kind kind = value.kind(); kind != Kind::boolean) {
            return std::unexpected(DecodingError::mismatch(expected, kind));
        }
        return value.boolean();
    }

    template <class E>
    static typename E::Output encode(E& encoder, bool value) {
        return encoder.boolean(value);
    }
};

template <>
struct Coding<double> {
    static constexpr std::string_view expected = "a number";

    template <class D>
    static Decoded<double> decode(const D& value) {
        if (const Kind kind = value.kind(); kind != Kind::number) {
            return std::unexpected(DecodingError::mismatch(expected, kind));
        }
        return value.number();
    }

    template <class E>
    static typename E::Output encode(E& encoder, double value) {
        return encoder.number(value);
    }
};

/// Unsigned ones are read only: no record has one.
template <std::integral Integer>
    requires(!std::same_as<Integer, bool>)
struct Coding<Integer> {
    static constexpr std::string_view expected =
        std::is_signed_v<Integer> ? "an integer" : "an unsigned integer";

    template <class D>
    static Decoded<Integer> decode(const D& value) {
        if (const Kind kind = value.kind(); kind != Kind::number) {
            return std::unexpected(DecodingError::mismatch(expected, kind));
        }
        const std::optional<std::int64_t> integer = value.integer();
        if (!integer) {
            return std::unexpected(
                DecodingError{{}, "expected " + std::string(expected) + ", found another number"});
        }
        if (!std::in_range<Integer>(*integer)) {
            return std::unexpected(DecodingError{{},
                                                 "expected " + std::string(expected) + " of " +
                                                     std::to_string(sizeof(Integer) * 8) +
                                                     " bits, found one out of range"});
        }
        return static_cast<Integer>(*integer);
    }

    template <class E>
    static typename E::Output encode(E& encoder, Integer value)
        requires std::is_signed_v<Integer>
    {
        return encoder.integer(value);
    }
};

/// The integer that a double is, when it is one that 64 bits hold.
inline std::optional<std::int64_t> integral(double value) {
    // 2^63 itself is out of range, and every double below it converts exactly.
    constexpr double limit = 9223372036854775808.0;
    if (std::trunc(value) != value || value < -limit || value >= limit) {
        return std::nullopt;
    }
    return static_cast<std::int64_t>(value);
}

template <>
struct Coding<std::string> {
    static constexpr std::string_view expected = "a string";

    template <class D>
    static Decoded<std::string> decode(const D& value) {
        if (const Kind kind = value.kind(); kind != Kind::string) {
            return std::unexpected(DecodingError::mismatch(expected, kind));
        }
        return value.text();
    }

    template <class E>
    static typename E::Output encode(E& encoder, const std::string& value) {
        return encoder.text(value);
    }
};

// --- Containers

/// Null or absent when there is none. A record leaves such a field out when it is written.
template <class T>
struct Coding<std::optional<T>> {
    static constexpr std::string_view expected = Coding<T>::expected;

    template <class D>
    static Decoded<std::optional<T>> decode(const D& value) {
        if (const Kind kind = value.kind(); kind == Kind::undefined || kind == Kind::null) {
            return std::nullopt;
        }
        Decoded<T> decoded = Coding<T>::decode(value);
        if (!decoded) {
            return std::unexpected(std::move(decoded.error()));
        }
        return std::optional<T>(std::move(*decoded));
    }

    template <class E>
    static typename E::Output encode(E& encoder, const std::optional<T>& value) {
        return value ? Coding<T>::encode(encoder, *value) : encoder.null();
    }
};

template <class T>
struct Coding<std::vector<T>> {
    static constexpr std::string_view expected = "an array";

    template <class D>
    static Decoded<std::vector<T>> decode(const D& value) {
        if (!value.isArray()) {
            return std::unexpected(DecodingError::mismatch(expected, value.kind()));
        }
        const Decoded<std::size_t> claimed = value.count();
        if (!claimed) {
            return std::unexpected(claimed.error());
        }
        const std::size_t count = *claimed;
        std::vector<T> elements;
        // An array that is all holes may claim any length.
        constexpr std::size_t trusted = 65536;
        elements.reserve(std::min(count, trusted));
        while (elements.size() < count) {
            if constexpr (requires { value.appendPacked(elements); }) {
                if (Decoded<void> packed = value.appendPacked(elements); !packed) {
                    return std::unexpected(std::move(packed.error()));
                }
                if (elements.size() >= count) {
                    break;
                }
            }
            const std::size_t index = elements.size();
            Decoded<D> element = value.element(index);
            if (!element) {
                return std::unexpected(std::move(element.error()).inElement(index));
            }
            Decoded<T> decoded = Coding<T>::decode(*element);
            if (!decoded) {
                return std::unexpected(std::move(decoded.error()).inElement(index));
            }
            elements.push_back(std::move(*decoded));
        }
        return elements;
    }

    template <class E>
    static typename E::Output encode(E& encoder, const std::vector<T>& value) {
        auto array = encoder.array(value.size());
        for (const T& element : value) {
            array.add(Coding<T>::encode(encoder, element));
        }
        return array.finish();
    }
};

template <class T>
struct Coding<std::map<std::string, T>> {
    static constexpr std::string_view expected = "an object";

    template <class D>
    static Decoded<std::map<std::string, T>> decode(const D& value) {
        if (const Kind kind = value.kind(); kind != Kind::object) {
            return std::unexpected(DecodingError::mismatch(expected, kind));
        }
        std::map<std::string, T> entries;
        const auto add = [&](std::string name, const Decoded<D>& field) -> Decoded<void> {
            Decoded<T> decoded = field ? Coding<T>::decode(*field) : std::unexpected(field.error());
            if (!decoded) {
                return std::unexpected(std::move(decoded.error()).inField(name));
            }
            // The last one counts where two names differ only in what UTF-8 cannot hold.
            entries.insert_or_assign(std::move(name), std::move(*decoded));
            return {};
        };
        if (Decoded<void> outcome = value.entries(add); !outcome) {
            return std::unexpected(std::move(outcome.error()));
        }
        return entries;
    }

    template <class E>
    static typename E::Output encode(E& encoder, const std::map<std::string, T>& value) {
        auto object = encoder.object();
        for (const auto& [name, element] : value) {
            object.set(name, Coding<T>::encode(encoder, element));
        }
        return object.finish();
    }
};

// --- Enumerations with raw texts

/// Specialised with `static constexpr auto& table`, a list of pairs {case, raw text}.
template <class Enumeration>
struct RawTexts;

template <class T>
concept HasRawTexts = requires { RawTexts<T>::table; };

template <HasRawTexts T>
std::optional<T> fromRawText(std::string_view text) {
    for (const auto& [value, raw] : RawTexts<T>::table) {
        if (raw == text) {
            return value;
        }
    }
    return std::nullopt;
}

template <HasRawTexts T>
std::string_view rawText(T value) {
    for (const auto& [known, raw] : RawTexts<T>::table) {
        if (known == value) {
            return raw;
        }
    }
    return {};
}

template <HasRawTexts T>
struct Coding<T> {
    static constexpr std::string_view expected = "a string";

    template <class D>
    static Decoded<T> decode(const D& value) {
        const Decoded<std::string> text = Coding<std::string>::decode(value);
        if (!text) {
            return std::unexpected(text.error());
        }
        if (const std::optional<T> known = fromRawText<T>(*text)) {
            return *known;
        }
        std::string choices;
        for (const auto& entry : RawTexts<T>::table) {
            choices += choices.empty() ? "\"" : ", \"";
            choices += entry.second;
            choices += '"';
        }
        return std::unexpected(
            DecodingError{{}, "expected one of " + choices + ", found another string"});
    }

    template <class E>
    static typename E::Output encode(E& encoder, T value) {
        return encoder.text(rawText(value));
    }
};

// --- Records

template <class T>
inline constexpr bool isOptional = false;
template <class T>
inline constexpr bool isOptional<std::optional<T>> = true;

template <class T>
concept Described = std::is_class_v<T> && boost::describe::has_describe_members<T>::value;

template <class T>
using FieldsOf = boost::describe::describe_members<T, boost::describe::mod_public>;

/// The name of a described field, made once.
template <class Descriptor>
const FieldName& fieldName() {
    static const FieldName name(Descriptor::name);
    return name;
}

/// Decodes one field of the object `value`; a failure says which field it was.
template <class T, class D>
Decoded<T> decodeField(const D& value, const FieldName& name) {
    Decoded<D> field = value.field(name);
    if (!field) {
        return std::unexpected(std::move(field.error()).inField(name.text));
    }
    Decoded<T> decoded = Coding<T>::decode(*field);
    if (!decoded) {
        return std::unexpected(std::move(decoded.error()).inField(name.text));
    }
    return decoded;
}

/// Decodes the fields of `record` from the object `value`; stops at the first failure.
template <class D, Described T>
Decoded<void> decodeFields(const D& value, T& record) {
    Decoded<void> outcome;
    boost::mp11::mp_for_each<FieldsOf<T>>([&]<class Descriptor>(Descriptor) {
        if (!outcome) {
            return;
        }
        using Field = std::remove_cvref_t<decltype(record.*Descriptor::pointer)>;
        Decoded<Field> decoded = decodeField<Field>(value, fieldName<Descriptor>());
        if (!decoded) {
            outcome = std::unexpected(std::move(decoded.error()));
            return;
        }
        record.*Descriptor::pointer = std::move(*decoded);
    });
    return outcome;
}

/// Encodes the fields of `record` into the builder `object`, in their order.
template <class E, class Object, Described T>
void encodeFields(E& encoder, Object& object, const T& record) {
    boost::mp11::mp_for_each<FieldsOf<T>>([&]<class Descriptor>(Descriptor) {
        using Field = std::remove_cvref_t<decltype(record.*Descriptor::pointer)>;
        const Field& field = record.*Descriptor::pointer;
        if constexpr (isOptional<Field>) {
            if (!field) {
                return;
            }
        }
        object.set(fieldName<Descriptor>(), Coding<Field>::encode(encoder, field));
    });
}

template <Described T>
struct Coding<T> {
    static constexpr std::string_view expected = "an object";

    template <class D>
    static Decoded<T> decode(const D& value) {
        if (const Kind kind = value.kind(); kind != Kind::object) {
            return std::unexpected(DecodingError::mismatch(expected, kind));
        }
        T record{};
        if (Decoded<void> outcome = decodeFields(value, record); !outcome) {
            return std::unexpected(std::move(outcome.error()));
        }
        return record;
    }

    template <class E>
    static typename E::Output encode(E& encoder, const T& record) {
        auto object = encoder.object();
        encodeFields(encoder, object, record);
        return object.finish();
    }
};

} // namespace tessel
