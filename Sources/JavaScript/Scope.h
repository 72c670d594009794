#pragma once

// The entered engine: every step into it is a member of the Scope that `Context::perform` gives.

#include <zem/JavaScript/Exception.h>
#include <zem/JavaScript/Name.h>
#include <zem/JavaScript/Value.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace zem::js {

using Arguments = std::span<const Local>;

/// A native closure that JavaScript calls as a function. It runs on the thread that runs the
/// JavaScript, inside the engine, with the door closed behind it: it does no blocking work, and
/// never waits for another thread, which may be waiting at that door. An exception given as the
/// result is thrown to JavaScript, and so is an Exception that escapes as a C++ exception; any
/// other that escapes is thrown as an Error with its text.
///
/// It is destroyed when the engine has collected the function, at a later entry of the context. It
/// holds its owner weakly, and no handle on anything that holds the function.
using NativeFunction = std::move_only_function<Result<Local>(Scope&, Local self, Arguments)>;

enum class ErrorType { error, typeError, rangeError };

/// Valid on the thread and for the time of the `perform` that gave it.
class Scope {
  public:
    /// The context that was entered.
    Context context() const;

    // Values. Text is UTF-8 outside and UTF-16 inside; what is invalid on either side becomes
    // U+FFFD.
    Local undefined();
    Local null();
    Local boolean(bool value);
    Local number(double value);
    Local string(std::string_view text);
    /// The same for text that is followed by a NUL byte, which saves a copy.
    Local stringTerminated(const char* text, std::size_t length);
    Local object();
    Local array(Arguments elements = {});
    Local arrayBuffer(std::span<const std::uint8_t> bytes);
    Local error(ErrorType type, std::string_view message);
    /// A function of the given name and length that behaves as functions do: `typeof`, `call`,
    /// `apply`, `bind`, `name` and `length`.
    Local function(std::string_view name, unsigned length, NativeFunction body);
    Local global();

    // Questions. None of them runs JavaScript. A proxy of an array is an object.
    Kind kind(Local value);
    /// Whether it has properties: an object, an array or a function.
    bool isObject(Local value);
    /// Only for the kind that the name says.
    bool toBoolean(Local value);
    double toNumber(Local value);
    std::string toText(Local value);
    /// The bytes of an ArrayBuffer or typed array, borrowed until the engine is left or JavaScript
    /// runs; none of a detached one; absent for anything else.
    std::optional<std::span<const std::uint8_t>> bytes(Local value);
    bool isSame(Local left, Local right);
    /// As `Array.isArray` says it: a proxy of an array is an array here.
    bool isArray(Local value);

    // Properties, of objects only. A getter or a proxy may run JavaScript, and throw.
    Result<Local> get(Local object, const Name& name);
    Result<Local> get(Local object, std::string_view name);
    /// By a name that is an engine's text, which may hold what UTF-8 cannot.
    Result<Local> get(Local object, Local name);
    Result<Local> getAt(Local object, unsigned index);
    Result<bool> has(Local object, const Name& name);
    Result<void> set(Local object, const Name& name, Local value);
    Result<void> set(Local object, std::string_view name, Local value);
    Result<void> setAt(Local object, unsigned index, Local value);
    /// Fails where a proxy claims a length that no array has.
    Result<unsigned> length(Local array);
    /// Gives a plain object that was just made a property of its own. Setting might instead run a
    /// setter that a script has put on a prototype, or fail at a read-only property there, and
    /// setting "__proto__" would replace the prototype.
    Result<void> define(Local object, const Name& name, Local value);
    Result<void> define(Local object, std::string_view name, Local value);
    /// An object's prototype, for objects that were just made: no proxy's trap is asked. What is
    /// set on an object whose prototype is null becomes its own.
    Local prototype(Local object);
    void setPrototype(Local object, Local prototype);
    /// The array of the names of the object's own enumerable properties, as `Object.keys` gives it.
    Result<Local> propertyNames(Local object);

    // Running JavaScript. Promise jobs that this makes due run before the step returns, unless it
    // was made from inside a native function: then they run when the outermost step does.
    // A `self` that is no object is the global one.
    Result<Local> call(Local function, Arguments arguments = {}, Local self = {});
    Result<Local> call(Local function, std::initializer_list<Local> arguments, Local self = {});
    /// Fails with a TypeError where the object is none or has no function of that name.
    Result<Local> callMethod(Local object, const Name& name, Arguments arguments);
    Result<Local> callMethod(Local object, const Name& name,
                             std::initializer_list<Local> arguments);
    Result<Local> evaluate(std::string_view source, std::string_view sourceURL,
                           int startingLine = 1);
    /// The text of `String(value)`; absent for a value that cannot be made text.
    std::optional<std::string> stringForm(Local value);
    /// The same, and the name of its kind for a value that cannot be made text.
    std::string describe(Local value);
    /// `JSON.stringify(value)`; absent where that gives undefined.
    Result<std::optional<std::string>> stringify(Local value);
    Result<Local> parseJSON(std::string_view text);

    // Handles.
    Value keep(Local value);
    /// The value of a handle of this context.
    Local local(const Value& value);

    // Failures to give back from a native function.
    Exception exception(Local thrown);
    std::unexpected<Exception> fail(ErrorType type, std::string_view message);

  private:
    friend class Entry;
    friend class Packed;
    friend class ContextState;
    friend class Sequence;
    Scope(ContextState& state, const void* engine)
        : state(state)
        , engine(engine) {}
    Result<Local> getNamed(Local object, void* name);
    Result<void> setNamed(Local object, void* name, Local value);
    Result<void> defineNamed(Local object, void* name, Local value);
    ContextState& state;
    const void* engine;
};

/// Makes an array element by element. Each is the array's own, whatever a script has put on the
/// prototypes. It holds engine values, so it lives on the stack and within one `perform`.
class ArrayMaker {
  public:
    explicit ArrayMaker(Scope& scope)
        : scope(scope) {}
    void add(Local element);
    /// The array. Nothing is added after it.
    Local finish();

  private:
    static constexpr unsigned most = 32;
    Scope& scope;
    Local first[most]; ///< a short array is made of these at once
    Local made;        ///< a longer one has no prototype until it is finished
    unsigned count = 0;
};

/// Makes a sequence of steps cheaper: the engine's own lock, which each step takes and gives back,
/// is held from the first to the last. Promise jobs that the steps make due run at the end.
/// Sequences may lie in one another. Does nothing where the engine cannot do it.
class Sequence {
  public:
    explicit Sequence(Scope& scope);
    ~Sequence();
    Sequence(const Sequence&) = delete;
    Sequence& operator=(const Sequence&) = delete;

  private:
    const void* engine;
};

/// A handle on something that can be called.
class Function {
  public:
    Function() = default;
    /// Absent when `value` is no function.
    static std::optional<Function> from(Scope& scope, Local value);

    explicit operator bool() const { return static_cast<bool>(held); }
    Result<Local> call(Scope& scope, Arguments arguments = {}) const {
        return scope.call(scope.local(held), arguments);
    }
    Context context() const;
    const Value& value() const { return held; }

  private:
    explicit Function(Value value)
        : held(std::move(value)) {}
    Value held;
};

} // namespace zem::js
