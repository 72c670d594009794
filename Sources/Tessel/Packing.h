#pragma once

// The packed lane: the decoder of many records whose fields were read from the engine at once.

#include <zem/JavaScript/Packed.h>
#include <zem/Tessel/Coding.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace tessel {

/// Specialised as true for a described record that comes in long lists. Its fields are scalars,
/// texts, maps and described records, each of them optional or not.
template <class T>
inline constexpr bool isPacked = false;

template <class T>
concept Packed = isPacked<T>;

/// The shape, as zem::js::Packed takes it, of a value that is decoded as a T.
template <class T>
struct Shape {
    static std::string text() { return "0"; }
};

template <class T>
struct Shape<std::vector<T>>; // is not packed

template <class T>
struct Shape<std::optional<T>> : Shape<T> {};

template <class T>
struct Shape<std::map<std::string, T>> {
    static std::string text() { return R"({"of":)" + Shape<T>::text() + "}"; }
};

template <Described T>
struct Shape<T> {
    static std::string text() {
        std::string text;
        boost::mp11::mp_for_each<FieldsOf<T>>([&]<class Descriptor>(Descriptor) {
            using Field = std::remove_cvref_t<decltype(std::declval<T&>().*Descriptor::pointer)>;
            text += text.empty() ? "[" : ",";
            text += R"({"name":")";
            text += fieldName<Descriptor>().text;
            text += R"(","of":)" + Shape<Field>::text() + "}";
        });
        return text + "]";
    }
};

/// A view of the next value of a row. Values are taken in the order in which they are decoded, each
/// once.
class PackedDecoder {
  public:
    explicit PackedDecoder(zem::js::Packed& row)
        : row(&row)
        , found(row.takeKind()) {
        if (found == Kind::boolean || found == Kind::number) {
            value = row.takeNumber();
        } else if (found == Kind::string) {
            string = row.takeText();
        }
    }

    Kind kind() const { return found; }
    bool boolean() const { return value != 0; }
    double number() const { return value; }
    std::optional<std::int64_t> integer() const { return integral(value); }
    std::string text() const { return std::move(string); }
    Decoded<PackedDecoder> field(const FieldName&) const { return PackedDecoder(*row); }
    template <class Visit>
    Decoded<void> entries(const Visit& visit) const {
        for (double left = row->takeNumber(); left > 0; --left) {
            std::string name = row->takeText();
            if (Decoded<void> visited = visit(std::move(name), PackedDecoder(*row)); !visited) {
                return visited;
            }
        }
        return {};
    }

  private:
    zem::js::Packed* row;
    Kind found;
    double value = 0;
    mutable std::string string; ///< until it is taken
};

} // namespace tessel
