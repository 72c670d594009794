#include <zem/Platform/URL.h>

#include <gtest/gtest.h>

using zem::platform::URL;

TEST(URL, ParsesItsPieces) {
    const auto url = URL::parse("https://user@example.com:8080/a%20b/c?q=1#end");
    ASSERT_TRUE(url) << url.error();
    EXPECT_EQ(url->absoluteString(), "https://user@example.com:8080/a%20b/c?q=1#end");
    EXPECT_EQ(url->scheme(), "https");
    EXPECT_EQ(url->host(), "example.com");
    EXPECT_EQ(url->path(), "/a b/c");
    EXPECT_FALSE(url->isFile());
}

TEST(URL, HasNoHostWhereThereIsNone) {
    const auto url = URL::parse("mailto:somebody@example.com");
    ASSERT_TRUE(url) << url.error();
    EXPECT_EQ(url->host(), "");
    EXPECT_EQ(url->path(), "somebody@example.com");
}

TEST(URL, LowersTheScheme) {
    const auto url = URL::parse("FILE:///etc");
    ASSERT_TRUE(url) << url.error();
    EXPECT_TRUE(url->isFile());
}

TEST(URL, DecodesPathsThatAreNotUTF8) {
    const auto url = URL::parse("file:///a%FFb%00c");
    ASSERT_TRUE(url) << url.error();
    EXPECT_EQ(url->path(), std::string("/a\xFF"
                                       "b\0c",
                                       6));
}

TEST(URL, RefusesWhatIsNone) {
    using namespace std::string_view_literals;
    for (const std::string_view text :
         {""sv, "a"sv, "/a/b"sv, "a/b:c"sv, "://host"sv, "1http://host"sv, "http://a b"sv,
          "http://host/a b"sv, "http://host/\0"sv, "http://host/\n"sv, "http://host/\xC3\xA9"sv,
          "http://host/%zz"sv, "http://host:port/"sv, "http://host/<a>"sv}) {
        const auto url = URL::parse(text);
        EXPECT_FALSE(url) << text;
        EXPECT_TRUE(url || !url.error().empty()) << text;
    }
}

TEST(URL, SaysWhichByteItMayNotHold) {
    EXPECT_EQ(URL::parse("http://a b").error(), "a URL may not hold the byte 0x20");
    EXPECT_EQ(URL::parse("http://\xC3\xA9").error(), "a URL may not hold the byte 0xC3");
}

TEST(URL, FileStandardisesThePath) {
    for (const char* path : {"/a/b", "//a//b", "/a/./b", "/a/c/../b", "/a/b/", "/a/b/."}) {
        const URL url = URL::file(path);
        EXPECT_EQ(url.absoluteString(), "file:///a/b") << path;
        EXPECT_EQ(url.path(), "/a/b") << path;
        EXPECT_EQ(url.scheme(), "file") << path;
        EXPECT_EQ(url.host(), "") << path;
        EXPECT_TRUE(url.isFile()) << path;
    }
    EXPECT_EQ(URL::file("/").absoluteString(), "file:///");
    EXPECT_EQ(URL::file("/..").path(), "/");
}

TEST(URL, FileIsMadeAbsoluteAgainstTheWorkingFolder) {
    const std::filesystem::path folder = std::filesystem::current_path();
    EXPECT_EQ(URL::file("a/b").path(), (folder / "a/b").string());
    EXPECT_EQ(URL::file(".").path(), folder.string());
    EXPECT_EQ(URL::file("").path(), folder.string());
}

TEST(URL, FileAndParseAgree) {
    for (const char* path :
         {"/a b", "/\xC3\xA9t\xC3\xA9", "/100%", "/a?b#c", "/\xFF\xFE", "/a\nb"}) {
        const URL url = URL::file(path);
        const auto parsed = URL::parse(url.absoluteString());
        ASSERT_TRUE(parsed) << path << ": " << parsed.error();
        EXPECT_EQ(*parsed, url);
        EXPECT_EQ(parsed->path(), path);
    }
    EXPECT_EQ(URL::file("/a b").absoluteString(), "file:///a%20b");
}

TEST(URL, IsEqualWhenTheTextIs) {
    EXPECT_EQ(URL::parse("http://host/a"), URL::parse("http://host/a"));
    EXPECT_NE(*URL::parse("http://host/a"), *URL::parse("http://host/b"));
}
