// Uploads from JavaScript, as a server receives them and an independent parser reads them.

#include <zem/Adapters/CurlNetworkAdapter.h>
#include <zem/Adapters/EncryptedBinaryStore.h>

#include <fmt/format.h>
#include <gmock/gmock.h>

#include <Adapters/NetworkCalls.h>
#include <Adapters/NetworkRuntime.h>
#include <SqliteStore/Store.h>
#include <Support/LoopbackServer.h>
#include <Support/Process.h>
#include <Support/TemporaryFolder.h>
#include <cstdint>
#include <fstream>
#include <sstream>

namespace {

using namespace zem;
using platform::Bytes;
using test::LoopbackServer;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Lines = std::vector<std::string>;

Bytes bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

Bytes contents(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return bytesOf(std::move(text).str());
}

void append(Bytes& bytes, std::initializer_list<int> more) {
    for (const int byte : more) {
        bytes.push_back(static_cast<std::uint8_t>(byte));
    }
}

/// A grey square of 8 by 8 pixels with a comment that looks like the end of a form.
Bytes jpeg() {
    Bytes bytes;
    append(bytes, {0xFF, 0xD8});
    append(bytes, {0xFF, 0xFE, 0x00, 0x0A, '\r', '\n', '-', '-', 'B', '-', '-', 0x00});
    append(bytes, {0xFF, 0xDB, 0x00, 0x43, 0x00}); // quantisation: 1 for each coefficient
    bytes.insert(bytes.end(), 64, 1);
    append(bytes, {0xFF, 0xC0, 0x00, 0x0B, 8, 0x00, 8, 0x00, 8, 1, 1, 0x11, 0});
    for (const int table : {0x00, 0x10}) { // Huffman: the one code "0", for "nothing more"
        append(bytes, {0xFF, 0xC4, 0x00, 0x14, table, 1});
        bytes.insert(bytes.end(), 15, 0);
        append(bytes, {0x00});
    }
    append(bytes, {0xFF, 0xDA, 0x00, 0x08, 1, 1, 0x00, 0, 63, 0});
    append(bytes, {0x3F, 0xFF, 0xD9});
    return bytes;
}

/// One empty page.
Bytes pdf() {
    std::string text = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
    const Lines objects{"<</Type/Catalog/Pages 2 0 R>>", "<</Type/Pages/Kids[3 0 R]/Count 1>>",
                        "<</Type/Page/Parent 2 0 R/MediaBox[0 0 595 842]/Resources<<>>>>"};
    std::string places = "0000000000 65535 f \n";
    for (std::size_t index = 0; index < objects.size(); ++index) {
        places += fmt::format("{:010} 00000 n \n", text.size());
        text += fmt::format("{} 0 obj\n{}\nendobj\n", index + 1, objects[index]);
    }
    return bytesOf(text + fmt::format("xref\n0 4\n{}trailer\n<</Size 4/Root 1 0 R>>\nstartxref\n"
                                      "{}\n%%EOF\n",
                                      places, text.size()));
}

Bytes large() {
    Bytes bytes(100'000'000);
    std::uint32_t state = 1;
    for (std::uint8_t& byte : bytes) {
        state = state * 1664525 + 1013904223;
        byte = static_cast<std::uint8_t>(state >> 24);
    }
    return bytes;
}

/// As a JavaScript literal.
std::string quoted(const std::string& text) {
    return boost::json::serialize(boost::json::string(text));
}

class MultipartUploadTest : public testing::Test {
  protected:
    /// Keeps the bytes; the JavaScript of an entry that uploads them.
    std::string file(const std::string& name, const Bytes& bytes, const std::string& filename,
                     const std::string& type) const {
        return fmt::format("[{}, '{}', {}, '{}']", quoted(name),
                           store->store(bytes, type, bytes.size()), quoted(filename), type);
    }

    /// Uploads the entries and returns the parts that the parser finds.
    Lines partsOf(const std::string& entries) const {
        test::NetworkRuntime runtime(test::adapterFor(server.url()), store);
        runtime.evaluate("upload('form', " + entries + ")");
        EXPECT_THAT(runtime.waitForAll(), ElementsAre("form: 200 done"));
        return parse(server.requests().back());
    }

    /// The bytes of a part that was found last.
    Bytes bytes(int part) const { return contents(folder / std::to_string(part)); }

    std::string contentType() const {
        return server.requests().back().header("content-type").value();
    }

    const test::TemporaryFolder folder;
    const std::shared_ptr<EncryptedBinaryStore> store =
        EncryptedBinaryStore::create({folder / "store", test::keyAndSalt()});

  private:
    Lines parse(const LoopbackServer::Request& request) const {
        std::ofstream(folder / "body", std::ios::binary) << request.body;
        test::Process parser({ZEM_NODE, ZEM_FORM_PARSER, request.header("content-type").value(),
                              folder / "body", folder.path()});
        const test::Process::Result result = parser.wait();
        EXPECT_EQ(result.code, 0) << result.errors;
        Lines lines;
        std::istringstream output(result.output);
        for (std::string line; std::getline(output, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    LoopbackServer server{[](const auto&, LoopbackServer::Connection& connection) {
        connection.respond(200, "", "done");
    }};
};

TEST_F(MultipartUploadTest, OfRealFilesArrivesByteForByte) {
    const Bytes text = contents(ZEM_README);
    ASSERT_GT(text.size(), 1000u);
    EXPECT_THAT(partsOf(file("readme", text, "README.md", "text/markdown") +
                        ", ['title', 'Site'], " + file("photo", jpeg(), "site.jpg", "image/jpeg") +
                        "," + file("plan", pdf(), "plan.pdf", "application/pdf") +
                        ", ['empty', ''], " +
                        file("nothing", {}, "nothing.bin", "application/octet-stream")),
                ElementsAre(R"(["text","title","text/plain","8bit"])",
                            R"(["text","empty","text/plain","8bit"])",
                            R"(["file","readme","README.md","text/markdown"])",
                            R"(["file","photo","site.jpg","image/jpeg"])",
                            R"(["file","plan","plan.pdf","application/pdf"])",
                            R"(["file","nothing","nothing.bin","application/octet-stream"])"));
    EXPECT_EQ(bytes(0), bytesOf("Site"));
    EXPECT_EQ(bytes(1), Bytes());
    EXPECT_EQ(bytes(2), text);
    EXPECT_EQ(bytes(3), jpeg());
    EXPECT_EQ(bytes(4), pdf());
    EXPECT_EQ(bytes(5), Bytes());
    EXPECT_THAT(contentType(), testing::StartsWith("multipart/form-data; boundary="));
}

TEST_F(MultipartUploadTest, Of100MegabytesArrivesByteForByte) {
    const Bytes sent = large();
    EXPECT_THAT(partsOf(file("video", sent, "site.mp4", "video/mp4")),
                ElementsAre(R"(["file","video","site.mp4","video/mp4"])"));
    EXPECT_TRUE(bytes(0) == sent);
}

TEST_F(MultipartUploadTest, KeepsNamesThatNeedNoEscape) {
    const Lines names{"für", "with a space", "it's", "a;b=c", "100%", "\u65e5\u672c", "a/b.txt"};
    std::string entries;
    Lines expected;
    for (const std::string& name : names) {
        entries += (entries.empty() ? "" : ", ") + file(name, bytesOf(name), name, "text/plain");
        expected.push_back(fmt::format(R"(["file","{}","{}","text/plain"])", name, name));
    }
    EXPECT_THAT(partsOf(entries), ElementsAreArray(expected));
    for (std::size_t part = 0; part < names.size(); ++part) {
        EXPECT_EQ(bytes(static_cast<int>(part)), bytesOf(names[part]));
    }
}

TEST_F(MultipartUploadTest, KeepsTheBytesOfTextsAndDeclaresThemToBeISO88591) {
    EXPECT_THAT(partsOf("['f\u00fcr', '\u00fc \u20ac \\r\\n--']"),
                ElementsAre("[\"text\",\"f\u00fcr\",\"text/plain\",\"8bit\"]"));
    EXPECT_EQ(bytes(0), bytesOf("\u00fc \u20ac \r\n--"));
}

TEST_F(MultipartUploadTest, WithAQuoteInANameParsesOnlyWhereTheRestStillReads) {
    const auto partsNamed = [&](const std::string& name, const std::string& filename) {
        return partsOf(file(name, bytesOf("x"), filename, "text/plain"));
    };
    // A backslash before the quote is read as an escape.
    EXPECT_THAT(partsNamed("f", R"(a\"b.txt)"),
                ElementsAre(R"(["file","f","a\"b.txt","text/plain"])"));
    // The name ends at the quote, and what follows looks like a parameter.
    EXPECT_THAT(partsNamed(R"(f"; x="y)", "a.txt"),
                ElementsAre(R"(["file","f","a.txt","text/plain"])"));
    // Else the part is lost.
    for (const std::string filename : {R"(say "hi".txt)", R"("a")", R"(a")", R"(a"; b)"}) {
        EXPECT_THAT(partsNamed("f", filename), IsEmpty()) << filename;
    }
    EXPECT_THAT(partsNamed(R"(a"b)", "a.txt"), IsEmpty());
}

TEST_F(MultipartUploadTest, WithALineBreakInAFileNameLosesThePart) {
    EXPECT_THAT(
        partsOf(file("f", bytesOf("x"), "a\r\nContent-Type: image/png\r\n\r\n", "text/plain")),
        IsEmpty());
}

TEST_F(MultipartUploadTest, WithoutAFileNameIsReadAsAText) {
    EXPECT_THAT(partsOf(file("f", bytesOf("x"), "", "text/plain")),
                ElementsAre(R"(["text","f","text/plain","7bit"])"));
}

} // namespace
