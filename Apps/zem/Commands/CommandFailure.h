#pragma once

// A command that cannot be carried out.

#include <stdexcept>

namespace zem::host {

/// With the text that says why.
class CommandFailure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

} // namespace zem::host
