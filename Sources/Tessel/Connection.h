#pragma once

// The bridge of one JavaScript context: plugins are added to it and bind their methods on it.

#include <zem/JavaScript/Context.h>
#include <zem/Tessel/Activity.h>
#include <zem/Tessel/Callback.h>
#include <zem/Tessel/JSValueCoder.h>
#include <zem/Tessel/Plugin.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace tessel {

/// A text as a template argument.
template <std::size_t length>
struct FixedText {
    consteval FixedText(const char (&text)[length]) { std::copy_n(text, length, characters); }
    constexpr std::string_view view() const { return {characters, length - 1}; }
    char characters[length];
};

template <class Method>
struct MethodTraits;

template <class Owner, class Answer, class... Parameters>
struct MethodTraits<Answer (Owner::*)(Parameters...)> {
    using OwnerType = Owner;
    using AnswerType = Answer;
    using ParameterTypes = std::tuple<std::remove_cvref_t<Parameters>...>;
    static constexpr std::size_t count = sizeof...(Parameters);
};

template <class Owner, class Answer, class... Parameters>
struct MethodTraits<Answer (Owner::*)(Parameters...) const>
    : MethodTraits<Answer (Owner::*)(Parameters...)> {};

template <class Owner, class Answer, class... Parameters>
struct MethodTraits<Answer (Owner::*)(Parameters...) noexcept>
    : MethodTraits<Answer (Owner::*)(Parameters...)> {};

template <class Owner, class Answer, class... Parameters>
struct MethodTraits<Answer (Owner::*)(Parameters...) const noexcept>
    : MethodTraits<Answer (Owner::*)(Parameters...)> {};

class Connection {
  public:
    explicit Connection(zem::js::Context context);

    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    const zem::js::Context& context() const { return boundContext; }

    /// Makes an object that carries the plugin's methods, and a property of the global object under
    /// the plugin's namespace that holds it. Any thread, but one at a time. The methods stay when
    /// the connection goes. Throws what Plugin::bind throws, and std::runtime_error when the global
    /// object refuses the property; then no method stays.
    void add(Plugin& plugin);

    /// Binds a member function as a method; only from Plugin::bind. The shapes are those of the
    /// function's signature. Arguments are decoded left to right up to the first failure, which is
    /// thrown as a TypeError that names the place; what the member function throws is thrown as an
    /// Error. The function runs on the thread that runs the JavaScript.
    template <FixedText name, auto method, class Owner>
    void bind(Owner& owner) {
        using Traits = MethodTraits<decltype(method)>;
        setMethod(
            name.view(), Traits::count,
            [held = std::weak_ptr<Owner>(std::static_pointer_cast<Owner>(owner.shared_from_this())),
             place = std::string(current->namespace_) + "." + std::string(name.view()),
             counted =
                 outstandingWork](zem::js::Scope& scope, zem::js::Local,
                                  zem::js::Arguments arguments) -> zem::js::Result<zem::js::Local> {
                const std::shared_ptr<Owner> strong = held.lock();
                if (strong == nullptr) {
                    return failGone(scope, place);
                }
                typename OptionalsOf<typename Traits::ParameterTypes>::Type decoded;
                return callDecoded<method>(scope, *strong, place, counted, arguments, decoded,
                                           std::make_index_sequence<Traits::count>());
            });
    }

    /// The callbacks that JavaScript handed over and that have not been dropped yet.
    Activity& activity() { return *outstandingWork; }

  private:
    /// The object that is being bound, during `add`.
    struct Binding {
        zem::js::Scope& scope;
        zem::js::Local target;
        std::string_view namespace_;
    };

    template <class Tuple>
    struct OptionalsOf;
    template <class... Types>
    struct OptionalsOf<std::tuple<Types...>> {
        using Type = std::tuple<std::optional<Types>...>;
    };

    template <auto method, class Owner, class Optionals, std::size_t... indices>
    static zem::js::Result<zem::js::Local>
    callDecoded(zem::js::Scope& scope, Owner& owner, const std::string& place,
                const std::shared_ptr<Activity>& counted, zem::js::Arguments arguments,
                Optionals& decoded, std::index_sequence<indices...>) {
        std::optional<zem::js::Exception> failure;
        const bool complete = (decodeArgument(scope, place, counted, arguments, indices,
                                              std::get<indices>(decoded), failure) &&
                               ...);
        if (!complete) {
            return std::unexpected(std::move(*failure));
        }
        using Answer = typename MethodTraits<decltype(method)>::AnswerType;
        if constexpr (std::is_void_v<Answer>) {
            (owner.*method)(std::move(*std::get<indices>(decoded))...);
            return scope.undefined();
        } else {
            return encodeValue(scope, (owner.*method)(std::move(*std::get<indices>(decoded))...));
        }
    }

    template <class Parameter>
    static bool decodeArgument(zem::js::Scope& scope, const std::string& place,
                               const std::shared_ptr<Activity>& counted,
                               zem::js::Arguments arguments, std::size_t index,
                               std::optional<Parameter>& decoded,
                               std::optional<zem::js::Exception>& failure) {
        if (index >= arguments.size()) {
            failure = missingArgument(scope, place, index, Coding<Parameter>::expected);
            return false;
        }
        Decoded<Parameter> outcome =
            decode<Parameter>(JSValueDecoder(scope, arguments[index], &counted));
        if (!outcome) {
            failure = wrongArgument(scope, place, index, outcome.error());
            return false;
        }
        decoded.emplace(std::move(*outcome));
        return true;
    }

    void setMethod(std::string_view name, std::size_t length, zem::js::NativeFunction body);
    static std::unexpected<zem::js::Exception> failGone(zem::js::Scope& scope,
                                                        const std::string& place);
    static zem::js::Exception missingArgument(zem::js::Scope& scope, const std::string& place,
                                              std::size_t index, std::string_view expected);
    static zem::js::Exception wrongArgument(zem::js::Scope& scope, const std::string& place,
                                            std::size_t index, const DecodingError& error);

    zem::js::Context boundContext;
    std::shared_ptr<Activity> outstandingWork = std::make_shared<Activity>();
    Binding* current = nullptr;
};

} // namespace tessel
