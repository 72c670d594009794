#pragma once

// Text between UTF-8 and the engine's strings. The engine's own conversion stops at a NUL byte,
// turns invalid UTF-8 into nothing and cuts at a lone surrogate; here lengths are explicit and what
// is invalid becomes U+FFFD.

#include <JavaScriptCore/JavaScript.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace zem::js {

/// An engine string that is released with its holder.
class EngineString {
  public:
    explicit EngineString(JSStringRef adopted)
        : string(adopted) {}
    ~EngineString() {
        if (string != nullptr) {
            JSStringRelease(string);
        }
    }
    EngineString(const EngineString&) = delete;
    EngineString& operator=(const EngineString&) = delete;
    JSStringRef get() const { return string; }

  private:
    JSStringRef string;
};

/// A new engine string; the caller releases it.
JSStringRef makeString(std::string_view text);
/// The same for text that a NUL byte follows.
JSStringRef makeStringTerminated(const char* text, std::size_t length);

std::string toUTF8(std::u16string_view units);
std::string toUTF8(JSStringRef string);

} // namespace zem::js
