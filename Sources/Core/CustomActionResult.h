#pragma once

// The result that an external action's native executor gives the runtime.

#include <zem/Tessel/Coding.h>

#include <boost/describe.hpp>

#include <array>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace zem {

enum class CustomActionResultType { success, failure };

inline constexpr std::array<std::pair<CustomActionResultType, std::string_view>, 2>
    customActionResultTypeTexts{{
        {CustomActionResultType::success, "SUCCESS"},
        {CustomActionResultType::failure, "FAILURE"},
    }};

enum class CustomActionErrorType { networkError, clientError };

inline constexpr std::array<std::pair<CustomActionErrorType, std::string_view>, 2>
    customActionErrorTypeTexts{{
        {CustomActionErrorType::networkError, "NETWORK_ERROR"},
        {CustomActionErrorType::clientError, "CLIENT_ERROR"},
    }};

struct CustomActionError {
    CustomActionErrorType type = CustomActionErrorType::clientError;
    std::string message;

    bool operator==(const CustomActionError&) const = default;
};
BOOST_DESCRIBE_STRUCT(CustomActionError, (), (type, message))

struct CustomActionResult {
    CustomActionResultType type = CustomActionResultType::success;
    std::optional<CustomActionError> error;

    bool operator==(const CustomActionResult&) const = default;
};
BOOST_DESCRIBE_STRUCT(CustomActionResult, (), (type, error))

} // namespace zem

namespace tessel {

template <>
struct RawTexts<zem::CustomActionResultType> {
    static constexpr auto& table = zem::customActionResultTypeTexts;
};

template <>
struct RawTexts<zem::CustomActionErrorType> {
    static constexpr auto& table = zem::customActionErrorTypeTexts;
};

} // namespace tessel
