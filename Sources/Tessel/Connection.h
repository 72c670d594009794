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
    /// Work that JavaScript waits for is counted in `activity`, which may count more than that.
    explicit Connection(zem::js::Context context,
                        std::shared_ptr<Activity> activity = std::make_shared<Activity>());

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
    /// thrown as a TypeError that names the place. What the member function throws is thrown to
    /// JavaScript: a zem::js::Exception as the value it carries, anything else as an Error. The
    /// function runs on the thread that runs the JavaScript.
    template <FixedText name, auto method, class Owner>
    void bind(Owner& owner) {
        setMethod(
            name.view(), MethodTraits<decltype(method)>::count,
            [held = std::weak_ptr<Owner>(std::static_pointer_cast<Owner>(owner.shared_from_this())),
             place = std::string(current->namespace_) + "." + std::string(name.view()),
             counted =
                 outstandingWork](zem::js::Scope& scope, zem::js::Local,
                                  zem::js::Arguments arguments) -> zem::js::Result<zem::js::Local> {
                // Held until the method has returned, whoever lets go of the plugin meanwhile.
                const std::shared_ptr<Owner> strong = held.lock();
                if (strong == nullptr) {
                    return failGone(scope, place);
                }
                return call<method>(*strong, Call{scope, place, counted, arguments});
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

    /// One call of a bound method.
    struct Call {
        zem::js::Scope& scope;
        const std::string& place;
        const std::shared_ptr<Activity>& counted;
        zem::js::Arguments arguments;
    };

    template <class Tuple>
    struct OptionalsOf;
    template <class... Types>
    struct OptionalsOf<std::tuple<Types...>> {
        using Type = std::tuple<std::optional<Types>...>;
    };

    template <auto method, class Owner>
    static zem::js::Result<zem::js::Local> call(Owner& owner, const Call& made) {
        using Traits = MethodTraits<decltype(method)>;
        return [&]<std::size_t... indices>(
                   std::index_sequence<indices...>) -> zem::js::Result<zem::js::Local> {
            typename OptionalsOf<typename Traits::ParameterTypes>::Type decoded;
            if constexpr (Traits::count > 0) {
                const zem::js::Sequence sequence(made.scope);
                std::optional<zem::js::Exception> failure;
                if (!(decodeArgument(made, indices, std::get<indices>(decoded), failure) && ...)) {
                    return std::unexpected(std::move(*failure));
                }
            }
            if constexpr (std::is_void_v<typename Traits::AnswerType>) {
                (owner.*method)(std::move(*std::get<indices>(decoded))...);
                return made.scope.undefined();
            } else {
                return encodeValue(made.scope,
                                   (owner.*method)(std::move(*std::get<indices>(decoded))...));
            }
        }(std::make_index_sequence<Traits::count>());
    }

    template <class Parameter>
    static bool decodeArgument(const Call& made, std::size_t index,
                               std::optional<Parameter>& decoded,
                               std::optional<zem::js::Exception>& failure) {
        // Also where undefined would do: a call that is too short is a mistake of its own.
        if (index >= made.arguments.size()) {
            failure = missingArgument(made, index, Coding<Parameter>::expected);
            return false;
        }
        Decoded<Parameter> outcome =
            decode<Parameter>(JSValueDecoder(made.scope, made.arguments[index], &made.counted));
        if (!outcome) {
            failure = wrongArgument(made, index, outcome.error());
            return false;
        }
        decoded.emplace(std::move(*outcome));
        return true;
    }

    void setMethod(std::string_view name, std::size_t length, zem::js::NativeFunction body);
    static std::unexpected<zem::js::Exception> failGone(zem::js::Scope& scope,
                                                        const std::string& place);
    static zem::js::Exception missingArgument(const Call& made, std::size_t index,
                                              std::string_view expected);
    static zem::js::Exception wrongArgument(const Call& made, std::size_t index,
                                            const DecodingError& error);

    zem::js::Context boundContext;
    std::shared_ptr<Activity> outstandingWork;
    Binding* current = nullptr;
};

} // namespace tessel
