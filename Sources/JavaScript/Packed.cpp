#include <zem/JavaScript/Packed.h>
#include <zem/JavaScript/Private/ContextState.h>
#include <zem/JavaScript/Private/Text.h>

#include <cstdint>

namespace zem::js {

Packed::Packed(Scope& scope, Local array, std::size_t first, const Name& shape) {
    JSContextRef context = engineContext(scope.engine);
    const Result<Local> packed = scope.call(Local(scope.state.intrinsics.pack),
                                            {array, scope.number(static_cast<double>(first)),
                                             Local(JSValueMakeString(context, engineName(shape)))});
    if (!packed) {
        return; // stopped from outside
    }
    const Result<Local> made = scope.getAt(*packed, 0);
    const Result<Local> text = scope.getAt(*packed, 1);
    if (!made || !text) {
        return;
    }
    const std::span<const std::uint8_t> bytes = scope.bytes(*made).value();
    // The engine aligns the bytes of a Float64Array for what it holds.
    numbers = {reinterpret_cast<const double*>(bytes.data()), bytes.size() / sizeof(double)};
    string = JSValueToStringCopy(context, engineValue(*text), nullptr);
    if (string == nullptr) {
        return; // too long to be put together
    }
    units = reinterpret_cast<const char16_t*>(
        JSStringGetCharactersPtr(static_cast<JSStringRef>(string)));
    elements = static_cast<std::size_t>(takeNumber());
}

Packed::~Packed() {
    if (string != nullptr) {
        JSStringRelease(static_cast<JSStringRef>(string));
    }
}

std::string Packed::takeText() {
    const auto length = static_cast<std::size_t>(takeNumber());
    std::string text = toUTF8({units, length});
    units += length;
    return text;
}

} // namespace zem::js
