#pragma once

// The engine lane: the decoder and encoder of records from and to engine values.

#include <zem/JavaScript/Context.h>
#include <zem/JavaScript/Scope.h>
#include <zem/Platform/Bytes.h>
#include <zem/Tessel/Activity.h>
#include <zem/Tessel/Coding.h>
#include <zem/Tessel/JSON.h>
#include <zem/Tessel/Packing.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace tessel {

/// A view of an engine value, on the stack of a thread that is inside the engine.
class JSValueDecoder {
  public:
    /// `activity`, where there is one, counts the functions that are decoded as callbacks.
    JSValueDecoder(zem::js::Scope& scope, zem::js::Local value,
                   const std::shared_ptr<Activity>* activity = nullptr)
        : entered(&scope)
        , value(value)
        , counted(activity) {}

    /// One for values that may hold long lists of records.
    static JSValueDecoder large(zem::js::Scope& scope, zem::js::Local value) {
        JSValueDecoder made(scope, value);
        made.isLarge = true;
        return made;
    }

    Kind kind() const { return entered->kind(value); }
    bool boolean() const { return entered->toBoolean(value); }
    double number() const { return entered->toNumber(value); }
    std::optional<std::int64_t> integer() const { return integral(number()); }
    std::string text() const { return entered->toText(value); }
    Decoded<std::size_t> count() const;
    Decoded<JSValueDecoder> element(std::size_t index) const;
    Decoded<JSValueDecoder> field(const FieldName& name) const;
    Decoded<JSValueDecoder> field(std::string_view name) const;
    /// Calls `visit(name, field)` for each entry of an object, up to the first failure.
    template <class Visit>
    Decoded<void> entries(const Visit& visit) const;
    bool isArray() const { return entered->isArray(value); }
    /// Appends what follows the elements of an array that were decoded before, as far as the packed
    /// lane takes it; nothing where this view was not made for large values.
    template <Packed T>
    Decoded<void> appendPacked(std::vector<T>& elements) const;
    /// The whole value at once, as its JSON text inside the engine: the bulk lane.
    Decoded<Any> any() const;

    zem::js::Scope& scope() const { return *entered; }
    zem::js::Local local() const { return value; }
    const std::shared_ptr<Activity>* activity() const { return counted; }

  private:
    JSValueDecoder(const JSValueDecoder& holder, zem::js::Local value)
        : entered(holder.entered)
        , value(value)
        , counted(holder.counted)
        , depth(holder.depth + 1)
        , isLarge(holder.isLarge) {}
    Decoded<JSValueDecoder> view(const zem::js::Result<zem::js::Local>& result) const;
    static DecodingError threw();
    zem::js::Scope* entered;
    zem::js::Local value;
    const std::shared_ptr<Activity>* counted;
    std::size_t depth = 0;
    bool isLarge = false;
};

template <class Visit>
Decoded<void> JSValueDecoder::entries(const Visit& visit) const {
    const zem::js::Result<zem::js::Local> names = entered->propertyNames(value);
    const zem::js::Result<unsigned> count =
        names ? entered->length(*names) : std::unexpected(names.error());
    if (!count) {
        return std::unexpected(threw());
    }
    for (unsigned index = 0; index < *count; ++index) {
        const zem::js::Result<zem::js::Local> name = entered->getAt(*names, index);
        if (!name) {
            return std::unexpected(threw());
        }
        if (Decoded<void> visited = visit(entered->toText(*name), view(entered->get(value, *name)));
            !visited) {
            return visited;
        }
    }
    return {};
}

template <Packed T>
Decoded<void> JSValueDecoder::appendPacked(std::vector<T>& elements) const {
    if (!isLarge) {
        return {};
    }
    static const zem::js::Name shape(Shape<T>::text());
    zem::js::Packed packed(*entered, value, elements.size(), shape);
    for (std::size_t left = packed.count(); left > 0; --left) {
        Decoded<T> decoded = decode<T>(PackedDecoder(packed));
        if (!decoded) {
            return std::unexpected(std::move(decoded.error()).inElement(elements.size()));
        }
        elements.push_back(std::move(*decoded));
    }
    return {};
}

/// Makes engine values, on the stack of a thread that is inside the engine. The properties of
/// objects and arrays are defined, not set: what a script has put on the prototypes is not run.
class JSValueEncoder {
  public:
    using Output = zem::js::Local;

    explicit JSValueEncoder(zem::js::Scope& scope)
        : entered(scope) {}

    Output null() { return entered.null(); }
    Output boolean(bool value) { return entered.boolean(value); }
    Output number(double value) { return entered.number(value); }
    Output integer(std::int64_t value) { return entered.number(static_cast<double>(value)); }
    Output text(const std::string& value) {
        return entered.stringTerminated(value.c_str(), value.size());
    }
    Output text(std::string_view value) { return entered.string(value); }
    Output any(const Any& value);

    class Object {
      public:
        explicit Object(zem::js::Scope& scope)
            : scope(scope)
            , made(scope.object()) {}
        void set(const FieldName& name, Output value) {
            (void)scope.define(made, name.engine, value);
        }
        void set(std::string_view name, Output value) { (void)scope.define(made, name, value); }
        Output finish() { return made; }

      private:
        zem::js::Scope& scope;
        Output made;
    };
    Object object() { return Object(entered); }

    class Array {
      public:
        explicit Array(zem::js::Scope& scope)
            : maker(scope) {}
        void add(Output value) { maker.add(value); }
        Output finish() { return maker.finish(); }

      private:
        zem::js::ArrayMaker maker;
    };
    Array array(std::size_t) { return Array(entered); }

    zem::js::Scope& scope() { return entered; }

  private:
    zem::js::Scope& entered;
};

/// Bytes are ArrayBuffers or typed arrays.
template <>
struct Coding<zem::platform::Bytes> {
    static constexpr std::string_view expected = "an ArrayBuffer or a typed array";

    static Decoded<zem::platform::Bytes> decode(const JSValueDecoder& value);
    static zem::js::Local encode(JSValueEncoder& encoder, const zem::platform::Bytes& value) {
        return encoder.scope().arrayBuffer(value);
    }
};

/// An engine value as it is.
template <>
struct Coding<zem::js::Value> {
    static constexpr std::string_view expected = "a value";

    static Decoded<zem::js::Value> decode(const JSValueDecoder& value) {
        return value.scope().keep(value.local());
    }
    static zem::js::Local encode(JSValueEncoder& encoder, const zem::js::Value& value) {
        return encoder.scope().local(value);
    }
};

template <class T>
zem::js::Local encodeValue(zem::js::Scope& scope, const T& value) {
    JSValueEncoder encoder(scope);
    if constexpr (std::is_arithmetic_v<T>) {
        return encode(encoder, value);
    } else {
        const zem::js::Sequence sequence(scope);
        return encode(encoder, value);
    }
}

template <class T>
Decoded<T> decodeValue(zem::js::Scope& scope, zem::js::Local value) {
    const zem::js::Sequence sequence(scope);
    return decode<T>(JSValueDecoder(scope, value));
}

/// The same, faster where `value` holds long lists of records: of each record a function inside the
/// engine takes the fields that T has.
template <class T>
Decoded<T> decodeLarge(zem::js::Scope& scope, zem::js::Local value) {
    const zem::js::Sequence sequence(scope);
    return decode<T>(JSValueDecoder::large(scope, value));
}

} // namespace tessel
