// The multipart form, byte for byte, and the list of fields that it is built from.

#include <zem/Tessel/JSON.h>
#include <zem/TesselPluginZEM/NetworkAdapter/MultipartForm.h>

#include <gtest/gtest.h>

#include <Support/BinaryStore.h>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace zem;

std::string textOf(const platform::Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

platform::Bytes bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

tessel::Decoded<MultiPartBody> decode(const std::string& json) {
    return tessel::fromAny<MultiPartBody>(tessel::parse(json).value());
}

std::string failure(const std::string& json) {
    const auto decoded = decode(json);
    return decoded ? "decoded" : decoded.error().description();
}

Request built(std::vector<MultipartFormField> fields, const Request& received = {}) {
    return multipartFormRequest(received, std::move(fields), "B");
}

std::string form(std::vector<MultipartFormField> fields) {
    return textOf(*built(std::move(fields)).bodyData);
}

// --- The list of fields

TEST(MultipartFields, AreSortedByKindAndKeepTheirOrder) {
    const auto body = decode(R"({"namedEntries": [
        {"name": "f1", "value": {"handle": "h1", "name": "1.txt", "type": "text/plain"}},
        {"name": "t1", "value": "v1"},
        {"name": "f2", "value": {"handle": "h2", "name": "2.txt", "type": "image/png", "more": 1}},
        {"name": "t2", "value": "", "more": true}], "more": null})");
    ASSERT_TRUE(body) << body.error().description();
    EXPECT_EQ(body->stringFields, (std::vector<MultipartStringField>{{"t1", "v1"}, {"t2", ""}}));
    EXPECT_EQ(body->dataFields,
              (std::vector<MultipartDataField>{{"f1", {"h1", "1.txt", "text/plain"}},
                                               {"f2", {"h2", "2.txt", "image/png"}}}));
}

TEST(MultipartFields, AreNoneInAnEmptyList) {
    EXPECT_EQ(decode(R"({"namedEntries": []})"), MultiPartBody{});
}

TEST(MultipartFields, FailWholeWhereOneIsNeitherATextNorAFile) {
    const std::vector<std::string> wrong{
        R"({"name": "a"})",
        R"({"value": "a"})",
        R"({"name": 1, "value": "a"})",
        R"({"name": "a", "value": 1})",
        R"({"name": "a", "value": null})",
        R"({"name": "a", "value": {"handle": "h", "name": "n"}})",
        R"({"name": "a", "value": {"handle": "h", "type": "t"}})",
        R"({"name": "a", "value": {"name": "n", "type": "t"}})",
        R"({"name": "a", "value": {"handle": 1, "name": "n", "type": "t"}})",
        R"("a")",
        "null",
        "[]",
    };
    for (const std::string& element : wrong) {
        EXPECT_EQ(failure(R"({"namedEntries": [{"name": "a", "value": "b"}, )" + element + "]}"),
                  "Unable to decode body field")
            << element;
    }
}

TEST(MultipartFields, WantAnObjectWithAList) {
    EXPECT_EQ(failure("[]"), "expected an object, found an array");
    EXPECT_EQ(failure("{}"), "namedEntries: expected an array, found undefined");
    EXPECT_EQ(failure(R"({"namedEntries": {}})"),
              "namedEntries: expected an array, found an object");
}

TEST(MultipartFields, ResolveTextsFirstThenFiles) {
    test::BinaryStore store;
    const std::string first = store.store(bytesOf("one"), "text/plain", 3);
    const std::string second = store.store(bytesOf(""), "text/plain", 0);
    MultiPartBody body;
    body.dataFields = {{"f1", {first, "1.txt", "text/plain"}}, {"f2", {second, "2", "a/b"}}};
    body.stringFields = {{"t1", "v1"}, {"t2", "v2"}};
    EXPECT_EQ(body.fields(store).value(),
              (std::vector<MultipartFormField>{
                  MultipartFormField::text("t1", "v1"), MultipartFormField::text("t2", "v2"),
                  MultipartFormField::data("f1", bytesOf("one"), "1.txt", "text/plain"),
                  MultipartFormField::data("f2", {}, "2", "a/b")}));
}

TEST(MultipartFields, FailAtAFileThatIsNotThere) {
    test::BinaryStore store;
    MultiPartBody body;
    body.dataFields = {{"f", {"unknown", "1.txt", "text/plain"}}};
    EXPECT_EQ(body.fields(store).error(), FormFieldError::noCachedData);
}

// --- The form

TEST(MultipartForm, OfOneTextFieldEndsWithItsClosingLine) {
    const std::string expected = "--B\r\n"
                                 "Content-Disposition: form-data; name=\"a\"\r\n"
                                 "Content-Type: text/plain; charset=ISO-8859-1\r\n"
                                 "Content-Transfer-Encoding: 8bit\r\n"
                                 "\r\n"
                                 "1\r\n";
    EXPECT_EQ(textFieldString("a", "1", "B"), expected);
    EXPECT_EQ(form({MultipartFormField::text("a", "1")}), expected + "--B--");
}

TEST(MultipartForm, OfOneFileHoldsItsBytes) {
    const std::string head = "--B\r\n"
                             "Content-Disposition: form-data; name=\"f\"; filename=\"n.bin\"\r\n"
                             "Content-Type: image/png\r\n"
                             "\r\n";
    const platform::Bytes bytes{0, 13, 10, 255, '-', '-'};
    const DataFieldData part = dataFieldData("f", "n.bin", bytes, "image/png", "B");
    EXPECT_EQ(part.head, head);
    EXPECT_EQ(part.value, bytes);
    EXPECT_EQ(part.tail, "\r\n");
    EXPECT_EQ(form({MultipartFormField::data("f", bytes, "n.bin", "image/png")}),
              head + textOf(bytes) + "\r\n--B--");
}

TEST(MultipartForm, KeepsTheOrderOfItsFields) {
    EXPECT_EQ(form({MultipartFormField::data("f", bytesOf("x"), "n", "t"),
                    MultipartFormField::text("a", "1"), MultipartFormField::text("b", "2")}),
              dataFieldData("f", "n", {}, "t", "B").head + "x\r\n" +
                  textFieldString("a", "1", "B") + textFieldString("b", "2", "B") + "--B--");
}

TEST(MultipartForm, EscapesNothing) {
    const std::string odd = "ü\"\r\nX: y\\";
    EXPECT_EQ(textFieldString(odd, odd, "B"),
              "--B\r\nContent-Disposition: form-data; name=\"" + odd +
                  "\"\r\nContent-Type: text/plain; charset=ISO-8859-1\r\n"
                  "Content-Transfer-Encoding: 8bit\r\n\r\n" +
                  odd + "\r\n");
    EXPECT_EQ(dataFieldData(odd, odd, {}, odd, "B").head,
              "--B\r\nContent-Disposition: form-data; name=\"" + odd + "\"; filename=\"" + odd +
                  "\"\r\nContent-Type: " + odd + "\r\n\r\n");
}

TEST(MultipartForm, ReplacesTheBodyAndDropsHostAndTrace) {
    Request received;
    received.method = HTTPMethod::POST;
    received.path = "/upload";
    received.host = "other.example";
    received.queryParams = {{"q", "1"}};
    received.headers = {{"X", "y"}};
    received.body = "namedEntries";
    received.bodyData = bytesOf("old");
    received.boundary = "old";
    received.priority = RequestPriority::high;
    received.observabilityContext = ObservabilityContext{"r", true, "t"};

    Request expected;
    expected.method = HTTPMethod::POST;
    expected.path = "/upload";
    expected.queryParams = {{"q", "1"}};
    expected.headers = {{"X", "y"}};
    expected.bodyData = bytesOf(textFieldString("a", "1", "B") + "--B--");
    expected.boundary = "B";
    expected.priority = RequestPriority::high;
    EXPECT_EQ(built({MultipartFormField::text("a", "1")}, received), expected);
}

TEST(MultipartForm, IsAllocatedOnce) {
    const Request request = built({MultipartFormField::text("a", "1"),
                                   MultipartFormField::data("f", bytesOf("xyz"), "n", "t")});
    EXPECT_EQ(request.bodyData->capacity(), request.bodyData->size());
}

} // namespace
