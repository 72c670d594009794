// Text is UTF-8 outside and UTF-16 inside; what is invalid on either side becomes U+FFFD.

#include <zem/JavaScript/Context.h>

#include <gtest/gtest.h>

#include <Support/Engine.h>
#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace std::string_view_literals;
using zem::js::Context;
using zem::js::Local;
using zem::js::Scope;

constexpr std::string_view unitsOf =
    "(text => Array.from({length: text.length}, (_, i) => text.charCodeAt(i).toString(16))"
    ".join(' '))";

std::string unitsIn(Scope& scope, Local text) {
    return scope.toText(*scope.call(*scope.evaluate(unitsOf, ""), {text}));
}

TEST(Text, ComesInAsUTF16) {
    struct Row {
        std::string_view name;
        std::string_view text;
        std::string_view units;
    };
    const std::vector<Row> rows{
        {"empty", ""sv, ""},
        {"ASCII", "ab~"sv, "61 62 7e"},
        {"NUL alone", "\0"sv, "0"},
        {"NUL inside", "a\0b"sv, "61 0 62"},
        {"NUL at the end", "ab\0"sv, "61 62 0"},
        {"two bytes", "\xC2\x80\xC3\xA9\xDF\xBF"sv, "80 e9 7ff"},
        {"three bytes", "\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBF"sv, "800 20ac ffff"},
        {"four bytes", "\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"sv,
         "d800 dc00 d83d de00 dbff dfff"},
        {"U+FFFD itself", "\xEF\xBF\xBD"sv, "fffd"},
        {"a byte that is never valid", "a\xFFz"sv, "61 fffd 7a"},
        {"a continuation alone", "a\x80z"sv, "61 fffd 7a"},
        {"cut after one of two", "a\xC3"sv, "61 fffd"},
        {"cut after two of three", "a\xE2\x82"sv, "61 fffd"},
        {"cut after three of four", "a\xF0\x9F\x98"sv, "61 fffd"},
        {"two of three, then ASCII", "\xE2\x82z"sv, "fffd 7a"},
        {"Latin-1 taken for UTF-8", "caf\xE9!"sv, "63 61 66 fffd 21"},
    };
    const Context context = test::makeContext();
    context.perform([&](Scope& scope) {
        for (const Row& row : rows) {
            EXPECT_EQ(unitsIn(scope, scope.string(row.text)), row.units) << row.name;
            const std::string terminated(row.text);
            EXPECT_EQ(unitsIn(scope, scope.stringTerminated(terminated.c_str(), terminated.size())),
                      row.units)
                << row.name;
        }
    });
}

TEST(Text, WhatNoUTF8MayHoldBecomesReplacements) {
    const std::vector<std::pair<std::string_view, std::string_view>> rows{
        {"overlong slash", "\xC0\xAF"sv},
        {"overlong NUL", "\xC0\x80"sv},
        {"overlong in three bytes", "\xE0\x80\xAF"sv},
        {"overlong in four bytes", "\xF0\x82\x82\xAC"sv},
        {"the last overlong in four bytes", "\xF0\x8F\xBF\xBF"sv},
        {"a surrogate", "\xED\xA0\x80"sv},
        {"a pair of surrogates", "\xED\xA0\xBD\xED\xB8\x80"sv},
        {"beyond the last character", "\xF4\x90\x80\x80"sv},
        {"five bytes", "\xF8\x88\x80\x80\x80"sv},
    };
    const Context context = test::makeContext();
    context.perform([&](Scope& scope) {
        for (const auto& [name, text] : rows) {
            // How many there are is nobody's business: at least one, and nothing else.
            const std::string between = "<" + std::string(text) + ">";
            const std::string units = unitsIn(scope, scope.string(between));
            EXPECT_TRUE(units.starts_with("3c fffd") && units.ends_with("fffd 3e"))
                << name << units;
            std::string rest = units.substr(3, units.size() - 6);
            while (rest.starts_with("fffd")) {
                rest.erase(0, std::min<std::size_t>(rest.size(), 5));
            }
            EXPECT_EQ(rest, "") << name;
        }
    });
}

TEST(Text, GoesOutAsUTF8) {
    struct Row {
        std::string_view script;
        std::string_view text;
    };
    const std::vector<Row> rows{
        {"''", ""sv},
        {"'ab~'", "ab~"sv},
        {"'\\0'", "\0"sv},
        {"'a\\0b'", "a\0b"sv},
        {"'ab\\0'", "ab\0"sv},
        {"'\\x80\\xe9\\u07ff'", "\xC2\x80\xC3\xA9\xDF\xBF"sv},
        {"'\\xff\\0'", "\xC3\xBF\0"sv},
        {"'\\u0800\\u20ac\\uffff'", "\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBF"sv},
        {"'\\u{10000}\\u{1F600}\\u{10FFFF}'", "\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"sv},
        {"'\\ud83d'", "\xEF\xBF\xBD"sv},
        {"'a\\ud83dz'", "a\xEF\xBF\xBDz"sv},
        {"'a\\ude00z'", "a\xEF\xBF\xBDz"sv},
        {"'a\\ude00'", "a\xEF\xBF\xBD"sv},
        {"'\\ude00\\ud83d'", "\xEF\xBF\xBD\xEF\xBF\xBD"sv},
        {"'\\ud83d\\ud83d\\ude00'", "\xEF\xBF\xBD\xF0\x9F\x98\x80"sv},
        {"'long enough to be a rope: ' + 'caf\\xe9'.repeat(3)",
         "long enough to be a rope: caf\xC3\xA9"
         "caf\xC3\xA9"
         "caf\xC3\xA9"sv},
    };
    const Context context = test::makeContext();
    context.perform([&](Scope& scope) {
        for (const Row& row : rows) {
            EXPECT_EQ(scope.toText(*scope.evaluate(row.script, "")), row.text) << row.script;
        }
    });
}

// The ways through the conversion change with length and with where the first character is that is
// not ASCII.
TEST(Text, SurvivesTheRoundTripAtEveryLengthAndPlace) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        std::vector<std::size_t> lengths;
        for (std::size_t length = 0; length <= 24; ++length) {
            lengths.push_back(length);
        }
        for (const std::size_t around : {255u, 256u, 257u, 1024u}) {
            lengths.push_back(around);
        }
        for (const std::size_t length : lengths) {
            const std::string plain(length, 'x');
            EXPECT_EQ(scope.toText(scope.string(plain)), plain);
            EXPECT_EQ(scope.toText(scope.stringTerminated(plain.c_str(), length)), plain);
            for (std::size_t place = 0; place < length; ++place) {
                for (const std::string_view odd : {"\0"sv, "\x01"sv, "\x7F"sv, "\xC3\xA9"sv,
                                                   "\xE2\x82\xAC"sv, "\xF0\x9F\x98\x80"sv}) {
                    std::string text = plain;
                    text.replace(place, 1, odd);
                    ASSERT_EQ(scope.toText(scope.string(text)), text) << length << " " << place;
                    ASSERT_EQ(scope.toText(scope.stringTerminated(text.c_str(), text.size())), text)
                        << length << " " << place;
                }
            }
        }
    });
}

TEST(Text, SurvivesTheRoundTripAt64MiB) {
    const Context context = test::makeContext();
    constexpr std::size_t size = std::size_t{64} * 1024 * 1024;
    std::string ascii;
    ascii.reserve(size);
    while (ascii.size() < size) {
        ascii += "0123456789abcdef";
    }
    // The last character alone is not ASCII: nothing before it may decide.
    std::string wide = ascii;
    wide.replace(size - 4, 4, "\xF0\x9F\x98\x80");
    context.perform([&](Scope& scope) {
        const Local lengthOf = *scope.evaluate("text => text.length", "");
        const Local asciiText = scope.stringTerminated(ascii.c_str(), ascii.size());
        EXPECT_EQ(scope.toNumber(*scope.call(lengthOf, {asciiText})), size);
        EXPECT_TRUE(scope.toText(asciiText) == ascii);
        const Local wideText = scope.string(wide);
        EXPECT_EQ(scope.toNumber(*scope.call(lengthOf, {wideText})), size - 2);
        EXPECT_TRUE(scope.toText(wideText) == wide);
    });
    context.collectGarbage();
}

TEST(Text, NamesSourcesAndMessagesAreTextToo) {
    const Context context = test::makeContext();
    context.perform([](Scope& scope) {
        const Local object = scope.object();
        EXPECT_TRUE(scope.set(object, "a\0b"sv, scope.number(1)));
        EXPECT_TRUE(scope.set(object, "caf\xC3\xA9"sv, scope.number(2)));
        EXPECT_TRUE(scope.set(object, ""sv, scope.number(3)));
        EXPECT_EQ(scope.toNumber(*scope.get(object, "a\0b"sv)), 1);
        EXPECT_EQ(scope.kind(*scope.get(object, "a"sv)), zem::js::Kind::undefined);
        static const zem::js::Name cafe("caf\xC3\xA9");
        EXPECT_EQ(scope.toNumber(*scope.get(object, cafe)), 2);
        EXPECT_EQ(scope.stringify(*scope.propertyNames(object)).value(),
                  "[\"a\\u0000b\",\"caf\xC3\xA9\",\"\"]");
        EXPECT_EQ(scope.toText(*scope.evaluate("'\xF0\x9F\x98\x80\0'"sv, "")),
                  "\xF0\x9F\x98\x80\0"sv);
        const zem::js::Exception failure =
            scope.fail(zem::js::ErrorType::error, "a\0\xC3\xA9\xFF"sv).error();
        EXPECT_EQ(failure.text(), "Error: a\0\xC3\xA9\xEF\xBF\xBD"sv);
        EXPECT_EQ(scope.toText(*scope.get(scope.function("caf\xC3\xA9", 0, nullptr), "name")),
                  "caf\xC3\xA9");
    });
}

} // namespace
