#pragma once

// The properties of many objects at once.

#include <zem/JavaScript/Name.h>
#include <zem/JavaScript/Scope.h>

#include <cstddef>
#include <span>
#include <string>

namespace zem::js {

/// A row of values that a function inside the engine has read from the elements of an array: every
/// step of the C API costs more than reading ten properties there. They are taken one after the
/// other, in the order in which they were read, in the engine and before JavaScript runs again.
///
/// A shape, as JSON, says what is read of an element and in which order: `0` is the value alone,
/// `[{"name": "a", "of": shape}, ...]` these properties of an object, each once, and
/// `{"of": shape}` all of its own enumerable properties.
class Packed {
  public:
    /// Reads `array`, or a proxy of one, from the element `first` on, as far as that goes in one
    /// step. It ends before an element that cannot be read this way: reading it throws, it holds an
    /// array, or it is very large.
    Packed(Scope& scope, Local array, std::size_t first, const Name& shape);
    ~Packed();
    Packed(const Packed&) = delete;
    Packed& operator=(const Packed&) = delete;

    /// How many elements were read.
    std::size_t count() const { return elements; }

    /// A value begins with its kind. A boolean and a number follow as a number, a text as a text;
    /// the properties of an object as its shape says, all of them as their count and then a text
    /// and a value for each.
    Kind takeKind() { return static_cast<Kind>(takeNumber()); }
    double takeNumber() { return numbers[next++]; }
    std::string takeText();

  private:
    void* string = nullptr;
    std::span<const double> numbers;
    const char16_t* units = nullptr;
    std::size_t elements = 0;
    std::size_t next = 0;
};

} // namespace zem::js
