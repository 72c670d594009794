#include <zem/Tessel/Connection.h>

#include <fmt/format.h>

#include <stdexcept>
#include <utility>

namespace tessel {

using zem::js::ErrorType;
using zem::js::Exception;
using zem::js::Scope;

namespace {

/// A plugin's `bind` may throw, and may add another plugin.
template <class Binding>
class CurrentBinding {
  public:
    CurrentBinding(Binding*& current, Binding& binding)
        : current(current)
        , outer(std::exchange(current, &binding)) {}
    ~CurrentBinding() { current = outer; }
    CurrentBinding(const CurrentBinding&) = delete;
    CurrentBinding& operator=(const CurrentBinding&) = delete;

  private:
    Binding*& current;
    Binding* outer;
};

void requireSet(Scope& scope, zem::js::Local object, std::string_view name, zem::js::Local value) {
    if (const auto set = scope.set(object, name, value); !set) {
        throw std::runtime_error(fmt::format("{}: {}", name, set.error().text()));
    }
}

} // namespace

Connection::Connection(zem::js::Context context, std::shared_ptr<Activity> activity)
    : boundContext(std::move(context))
    , outstandingWork(std::move(activity)) {}

void Connection::add(Plugin& plugin) {
    boundContext.perform([&](Scope& scope) {
        Binding binding{scope, scope.object(), plugin.namespace_()};
        {
            const CurrentBinding bound(current, binding);
            plugin.bind(*this);
        }
        requireSet(scope, scope.global(), binding.namespace_, binding.target);
    });
}

void Connection::setMethod(std::string_view name, std::size_t length,
                           zem::js::NativeFunction body) {
    Scope& scope = current->scope;
    requireSet(scope, current->target, name,
               scope.function(name, static_cast<unsigned>(length), std::move(body)));
}

std::unexpected<Exception> Connection::failGone(Scope& scope, const std::string& place) {
    return scope.fail(ErrorType::error, place + ": the plugin is gone");
}

Exception Connection::missingArgument(const Call& made, std::size_t index,
                                      std::string_view expected) {
    return made.scope.exception(made.scope.error(
        ErrorType::typeError, fmt::format("{}, argument {}: expected {}, found nothing", made.place,
                                          index + 1, expected)));
}

Exception Connection::wrongArgument(const Call& made, std::size_t index,
                                    const DecodingError& error) {
    return made.scope.exception(
        made.scope.error(ErrorType::typeError, fmt::format("{}, argument {}: {}", made.place,
                                                           index + 1, error.description())));
}

} // namespace tessel
