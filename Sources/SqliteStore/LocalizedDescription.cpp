#include <zem/SqliteStore/Private/LocalizedDescription.h>
#include <zem/SqliteStore/SQLiteConnectionError.h>
#include <zem/SqliteStore/SQLiteResult.h>
#include <zem/SqliteStore/SQLiteValue.h>

#include <boost/core/demangle.hpp>

#include <string_view>
#include <system_error>
#include <typeinfo>

namespace zem {
namespace {

std::string text(std::string_view type, int code) {
    return "The operation couldn't be completed. (" + std::string(type) + " error " +
           std::to_string(code) + ".)";
}

} // namespace

std::string localizedDescription(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const SQLiteResult& result) {
        return text("SQLiteResult", result.rawValue);
    } catch (const SQLiteConnectionError& connectionError) {
        return text("SQLiteConnection.ConnectionError", connectionError.value);
    } catch (const SQLiteValue::DecodingError&) {
        return text("SQLiteValue.DecodingError", 1);
    } catch (const std::system_error& systemError) {
        return text(boost::core::demangle(typeid(systemError).name()), systemError.code().value());
    } catch (const std::exception& other) {
        return text(boost::core::demangle(typeid(other).name()), 1);
    } catch (...) {
        return text("unknown", 1);
    }
}

} // namespace zem
