#pragma once

// Checks for every enumeration with raw texts, against a table that a test writes out.

#include <zem/JavaScript/Context.h>
#include <zem/Tessel/JSON.h>
#include <zem/Tessel/JSValueCoder.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <algorithm>
#include <cctype>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <unordered_set>
#include <utility>
#include <vector>

namespace test {

/// Texts that are nearly `text`: in other case, with something around it, cut off.
inline std::vector<std::string> nearly(const std::string& text) {
    const auto mapped = [&](int (*map)(int)) {
        std::string made;
        for (const char character : text) {
            made += static_cast<char>(map(static_cast<unsigned char>(character)));
        }
        return made;
    };
    std::string capitalised = mapped(std::tolower);
    capitalised.front() = static_cast<char>(std::toupper(capitalised.front()));
    return {mapped(std::tolower),
            mapped(std::toupper),
            capitalised,
            " " + text,
            text + " ",
            text + text,
            text + std::string(1, '\0'),
            text.substr(0, text.size() - 1),
            text.substr(1)};
}

/// Checks that `expected` is all there is, in this order, that each case crosses as its text in
/// both directions, and that nothing else is read: neither texts that are nearly right nor
/// `others`.
template <class T>
void expectRawTexts(const std::vector<std::pair<T, std::string>>& expected,
                    const std::vector<std::string>& others = {}) {
    std::vector<std::pair<T, std::string>> table;
    for (const auto& [value, text] : tessel::RawTexts<T>::table) {
        table.emplace_back(value, text);
    }
    EXPECT_EQ(table, expected);

    const zem::js::Context context = makeContext();
    const auto decoded = [&](const std::string& text) {
        return context.perform([&](zem::js::Scope& scope) {
            return tessel::decodeValue<T>(scope, scope.string(text));
        });
    };
    std::set<std::string> known;
    std::unordered_set<T> distinct;
    std::size_t place = 0;
    for (const auto& [value, text] : expected) {
        SCOPED_TRACE(text);
        EXPECT_EQ(static_cast<std::size_t>(value), place++) << "the order of declaration";
        EXPECT_EQ(tessel::rawText(value), text);
        EXPECT_EQ(tessel::fromRawText<T>(text), value);
        EXPECT_EQ(decoded(text), value);
        context.perform([&](zem::js::Scope& scope) {
            const zem::js::Local written = tessel::encodeValue(scope, value);
            EXPECT_EQ(scope.kind(written), zem::js::Kind::string);
            EXPECT_EQ(scope.toText(written), text);
        });
        EXPECT_EQ(tessel::toAny(value), tessel::Any(text));
        EXPECT_EQ(tessel::fromAny<T>(tessel::Any(text)), value);
        EXPECT_TRUE(distinct.insert(value).second) << "two cases are equal";
        known.insert(text);
    }

    std::vector<std::string> wrong = others;
    wrong.insert(wrong.end(), {"", "undefined", "null", "0", "other"});
    std::string choices;
    for (const std::string& text : known) {
        std::ranges::copy(nearly(text), std::back_inserter(wrong));
    }
    for (const auto& [value, text] : expected) {
        choices += (choices.empty() ? "\"" : ", \"") + text + "\"";
    }
    for (const std::string& text : wrong) {
        if (known.contains(text)) {
            continue;
        }
        SCOPED_TRACE(text);
        EXPECT_EQ(tessel::fromRawText<T>(text), std::nullopt);
        const tessel::DecodingError error{{},
                                          "expected one of " + choices + ", found another string"};
        EXPECT_EQ(decoded(text), tessel::Decoded<T>(std::unexpected(error)));
        EXPECT_EQ(tessel::fromAny<T>(tessel::Any(text)),
                  tessel::Decoded<T>(std::unexpected(error)));
    }
}

} // namespace test
