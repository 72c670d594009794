#pragma once

// The result of every call of the data service.

#include <zem/Core/DataServiceError.h>

#include <boost/json.hpp>

#include <expected>
#include <functional>
#include <map>
#include <string>

namespace zem {

/// The runtime's data: keys in the runtime's order, integers apart from doubles.
using Dictionary = boost::json::object;

using DataServiceResult = std::expected<Dictionary, DataServiceError>;
using ResultCallback = std::function<void(DataServiceResult)>;

/// The texts that a mutating call attaches to the draft that it creates.
using Metadata = std::map<std::string, std::string>;

/// Ends a subscription. Any thread, any number of times.
using Unsubscribe = std::function<void()>;

} // namespace zem
