// The binary store's blobs as people and programs read them, and what they are made of.

#include <gtest/gtest.h>

#include <Apps/zem/Commands/BinariesTable.h>
#include <Apps/zem/Commands/MIMEType.h>
#include <Apps/zem/Process/ByteCount.h>
#include <chrono>
#include <optional>

namespace {

using namespace std::chrono_literals;
using zem::host::describe;
using zem::host::describeByteCount;
using zem::host::guessMIMEType;
using zem::host::isMIMEType;
using Blob = zem::EncryptedBinaryStore::Blob;
using Time = zem::EncryptedBinaryStore::Time;

const std::vector<Blob> blobs{
    {.handle = "A", .type = "", .size = 0, .canonicalUrls = {}, .expiry = std::nullopt},
    {.handle = "B-LONG",
     .type = "image/png",
     .size = 1234567,
     .canonicalUrls = {"https://x.example/b", "https://y.example/b"},
     .expiry = Time{1'800'000'000'999ms},
     .kind = Blob::Kind::cached},
};

TEST(BinariesTable, HasARowForEach) {
    EXPECT_EQ(describe(blobs), R"(2 binaries
  HANDLE  TYPE       SIZE    KIND    EXPIRY                URLS
  A       -          0 B     stored  -                     -
  B-LONG  image/png  1.2 MB  cached  2027-01-15T08:00:00Z  https://x.example/b https://y.example/b)");
    EXPECT_TRUE(describe({blobs[0]}).starts_with("1 binary\n"));
    EXPECT_EQ(describe(std::vector<Blob>()), "no binaries");
}

TEST(BinariesTable, IsAListInJSON) {
    EXPECT_EQ(tessel::toText(zem::host::toAny(blobs)),
              R"([{"handle":"A","type":"","size":0,"kind":"stored","expiry":null,)"
              R"("canonicalUrls":[]},{"handle":"B-LONG","type":"image/png","size":1234567,)"
              R"("kind":"cached","expiry":1800000000999,)"
              R"("canonicalUrls":["https://x.example/b","https://y.example/b"]}])");
    EXPECT_EQ(tessel::toText(zem::host::toAny(std::vector<Blob>())), "[]");
}

TEST(ByteCount, IsInTheLargestUnitThatIsFull) {
    struct Case {
        std::uint64_t bytes;
        const char* text;
    };
    for (const auto& [bytes, text] :
         {Case{0, "0 B"}, Case{999, "999 B"}, Case{1000, "1.0 kB"}, Case{1999, "1.9 kB"},
          Case{999'999, "999.9 kB"}, Case{1'000'000, "1.0 MB"}, Case{104'857'600, "104.8 MB"},
          Case{999'999'999, "999.9 MB"}, Case{1'000'000'000, "1.0 GB"},
          Case{1'234'000'000'000, "1234.0 GB"}}) {
        EXPECT_EQ(describeByteCount(bytes), text) << bytes;
    }
}

TEST(MIMEType, IsGuessedFromTheExtension) {
    EXPECT_EQ(guessMIMEType("photo.jpg"), "image/jpeg");
    EXPECT_EQ(guessMIMEType("PHOTO.JPEG"), "image/jpeg");
    EXPECT_EQ(guessMIMEType("a.b.pdf"), "application/pdf");
    EXPECT_EQ(guessMIMEType("notes.txt"), "text/plain");
    for (const char* unknown : {"", "jpg", ".jpg", "a.", "a.unknown"}) {
        EXPECT_EQ(guessMIMEType(unknown), "application/octet-stream") << unknown;
    }
}

TEST(MIMEType, HasATypeAndASubtype) {
    for (const char* type : {"image/png", "text/plain; charset=utf-8", "image/svg+xml"}) {
        EXPECT_TRUE(isMIMEType(type)) << type;
    }
    for (const char* type : {"", "png", "/png", "image/", "image /png", "image/png\r\nX: y",
                             "image/p\xC3\xA4", "text/plain;\tx"}) {
        EXPECT_FALSE(isMIMEType(type)) << type;
    }
}

} // namespace
