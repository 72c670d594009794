#include <zem/Tessel/DecodingError.h>

#include <fmt/format.h>

namespace tessel {

DecodingError DecodingError::tooDeep() {
    return {{}, fmt::format("nested deeper than {} levels", deepestNesting)};
}

DecodingError DecodingError::mismatch(std::string_view expected, zem::js::Kind found) {
    return {{}, fmt::format("expected {}, found {}", expected, zem::js::nameOf(found))};
}

DecodingError DecodingError::inElement(std::size_t index) && {
    path.insert(0, fmt::format("[{}]", index));
    return std::move(*this);
}

DecodingError DecodingError::inField(std::string_view name) && {
    path.insert(0, fmt::format(".{}", name));
    return std::move(*this);
}

std::string DecodingError::description() const {
    if (path.empty()) {
        return message;
    }
    return fmt::format("{}: {}", path.front() == '.' ? std::string_view(path).substr(1) : path,
                       message);
}

} // namespace tessel
