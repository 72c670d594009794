#pragma once

// An exception of JavaScript, read out so that it can be shown without entering the engine again.

#include <zem/JavaScript/Value.h>

#include <expected>
#include <memory>
#include <string>

namespace zem::js {

class Exception {
  public:
    struct Details {
        /// The thrown value as text: "TypeError: x is not a function", or what `String` makes of
        /// it.
        std::string text;
        /// Where it was thrown; empty and 0 when the engine does not know.
        std::string sourceURL;
        int line = 0;
        int column = 0;
        /// One frame a line; empty when there is none.
        std::string stack;
        /// The thrown value itself.
        Value value;
    };

    explicit Exception(Details details)
        : details(std::make_shared<const Details>(std::move(details))) {}

    const std::string& text() const { return details->text; }
    const std::string& sourceURL() const { return details->sourceURL; }
    int line() const { return details->line; }
    int column() const { return details->column; }
    const std::string& stack() const { return details->stack; }
    const Value& value() const { return details->value; }

    /// "file:line:column", or empty when the place is not known.
    std::string place() const;

  private:
    std::shared_ptr<const Details> details;
};

template <class T>
using Result = std::expected<T, Exception>;

} // namespace zem::js
