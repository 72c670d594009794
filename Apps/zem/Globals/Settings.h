#pragma once

// The globals that the command line sets.

#include "Process/Options.h"
#include <zem/JavaScript/Context.h>

#include <string>
#include <utility>
#include <vector>

namespace zem::host {

class Settings {
  public:
    /// Reads the files. Throws a Failure when one cannot be read.
    explicit Settings(const std::vector<Setting>& given);

    /// A setting's name and value.
    using Value = std::pair<std::string, js::Value>;

    /// Throws a Failure with the place if a file's text is not JSON.
    std::vector<Value> parse(js::Scope& scope) const;

  private:
    struct Loaded {
        Setting setting;
        std::string text;
    };
    std::vector<Loaded> loaded;
};

} // namespace zem::host
