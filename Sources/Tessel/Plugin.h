#pragma once

// The interface of native code that JavaScript may call.

#include <string_view>

namespace tessel {

class Connection;

/// A set of named methods under one namespace. A plugin is owned by a std::shared_ptr that the
/// application keeps: the connection and the bound methods hold it weakly, and a method that is
/// called when it is gone throws an Error.
class Plugin {
  public:
    virtual ~Plugin() = default;

    /// The name of the JavaScript object that carries the methods: "ZemSqliteStore".
    virtual std::string_view namespace_() const = 0;

    /// Binds the methods with `to.bind<"name", &Type::method>(*this)`. Called once for every
    /// connection that the plugin is added to, inside the engine.
    virtual void bind(Connection& to) = 0;
};

} // namespace tessel
