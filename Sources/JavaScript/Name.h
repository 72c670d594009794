#pragma once

// Property names, made once and used often.

#include <string>
#include <string_view>

namespace zem::js {

/// A property name in the engine's own form. Belongs to no context, may be made and used on any
/// thread, and is never let go of, so that code which still runs when the process exits finds it: a
/// static beside the code that uses it. Names that are not known beforehand are given as text.
class Name {
  public:
    explicit Name(std::string_view text);
    Name(const Name&) = delete;
    Name& operator=(const Name&) = delete;

    void* get() const { return string; }
    std::string text() const;

  private:
    void* string;
};

} // namespace zem::js
