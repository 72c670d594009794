#pragma once

// References to engine values: `Local` for the stack of a thread that is inside the engine, `Value`
// for everything that outlives it.

#include <memory>

namespace zem::js {

class Context;
class ContextState;
class Scope;

/// An engine value as the engine hands it out. It may alias the engine's own pointer arrays.
typedef const void* __attribute__((may_alias)) RawValue;

/// A value on the stack. The collector finds it there and nowhere else: it is valid until the
/// `perform` that gave it returns, and is never kept in a field, a container on the heap or a
/// closure (make a `Value` of it with `Scope::keep`).
class Local {
  public:
    Local() = default;
    explicit Local(RawValue raw)
        : raw(raw) {}
    RawValue get() const { return raw; }

  private:
    RawValue raw = nullptr;
};

enum class Kind {
    undefined,
    null,
    boolean,
    number,
    string,
    symbol,
    bigInt,
    object,
    array,
    function
};

/// The name of a value of the kind in an error text: "a number", "undefined", "an array".
const char* nameOf(Kind kind);

/// A handle that keeps an engine value alive, and with it the value's context. Copies share one
/// handle. It may be copied and dropped on any thread at any time; on a thread that is not inside
/// the engine, what it held is let go at the context's next entry, so that dropping never waits for
/// running JavaScript.
class Value {
  public:
    /// Holds nothing.
    Value() = default;

    explicit operator bool() const { return handle != nullptr; }

    /// The context of the value; an empty one when this holds nothing.
    Context context() const;

    /// Lets go of the value.
    void reset() { handle.reset(); }

    /// The same handle, not merely an equal value.
    bool isSameHandle(const Value& other) const { return handle == other.handle; }

  private:
    friend class Scope;
    struct Handle;
    explicit Value(std::shared_ptr<const Handle> handle)
        : handle(std::move(handle)) {}
    std::shared_ptr<const Handle> handle;
};

} // namespace zem::js
