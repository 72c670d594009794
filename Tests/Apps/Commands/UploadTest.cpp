// Uploads by way of a runtime in JavaScript, the binaries that they leave, and the network that is
// switched off.

#include <gmock/gmock.h>

#include <Apps/Host.h>
#include <Support/LoopbackServer.h>
#include <Support/Wait.h>
#include <filesystem>

namespace {

using test::Event;
using test::Host;
using test::LoopbackServer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

/// Uploads as a multipart form, answers with the status, and tells what it was asked. `tokens` has
/// the requests under way by their titles.
constexpr const char* uploadingRuntime = R"(
    globalThis.tokens = {};
    const send = (config, callback) => {
        const { title, fileData: { handle, name, type } } = JSON.parse(config);
        const namedEntries = [
            { name: 'title', value: title },
            { name: 'file', value: { handle, name, type } },
        ];
        tokens[title] = ZemNetworkAdapter.sendRequest(
            {
                method: 'POST', path: '/upload', queryParams: { title }, headers: {},
                body: JSON.stringify({ namedEntries }),
            },
            ({ status }) => callback({ data: { title, status } }),
            ({ message }) => callback({ error: message }));
    };
    const show = (...values) => console.log(JSON.stringify(values).replace(
        /"handle":"[0-9A-F-]{36}"/, '"handle":"..."'));
    const dataService = {
        invokeAdapter(id, config, callback) {
            show(id, JSON.parse(config));
            send(config, callback);
        },
        invokeAdapterWithMetadata(id, config, metadata, callback) {
            show(id, JSON.parse(config), metadata);
            send(config, callback);
        },
    };
    globalThis.runtime = { dataService };
)";

void respondDone(const LoopbackServer::Request&, LoopbackServer::Connection& connection) {
    connection.respond(200, "", "");
}

/// Bytes of every value, longer than a piece of the binary store.
std::string largeFile() {
    std::string bytes;
    for (std::size_t index = 0; index < (2 << 20) + 7; ++index) {
        bytes += static_cast<char>(index * 31 + index / 251);
    }
    return bytes;
}

TEST(Upload, SendsTheFileInTheFormOfTheRuntime) {
    LoopbackServer server(respondDone);
    const Host host;
    const std::string bytes = largeFile();
    host.write("Foto ä.JPG", bytes);
    const auto result = host.runCommands(
        uploadingRuntime, "upload 'Foto ä.JPG' --title 'A title'\nwait\n", {"--url", server.url()});
    EXPECT_EQ(result.output,
              R"(["createContentDocumentAndVersion",{"title":"A title","description":"",)"
              R"("fileData":{"handle":"...","name":"Foto ä.JPG","isFileReference":true,)"
              R"("size":2097159,"type":"image/jpeg"}}])"
              "\ni1 upload: {\"title\":\"A title\",\"status\":200}\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
    ASSERT_THAT(server.lines(), ElementsAre("POST /upload?title=A%20title"));
    const LoopbackServer::Request request = server.requests().front();
    const std::string prefix = "multipart/form-data; boundary=";
    const std::string type = request.header("content-type").value_or("");
    ASSERT_THAT(type, StartsWith(prefix));
    const std::string boundary = type.substr(prefix.size());
    EXPECT_TRUE(request.body ==
                "--" + boundary +
                    "\r\nContent-Disposition: form-data; name=\"title\"\r\n"
                    "Content-Type: text/plain; charset=ISO-8859-1\r\n"
                    "Content-Transfer-Encoding: 8bit\r\n\r\nA title\r\n--" +
                    boundary +
                    "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"Foto ä.JPG\"\r\n"
                    "Content-Type: image/jpeg\r\n\r\n" +
                    bytes + "\r\n--" + boundary + "--");
}

TEST(Upload, HandsItsOptionsOn) {
    LoopbackServer server(respondDone);
    const Host host;
    host.write("folder.txt", "");
    host.write("a", "12345");
    const auto result =
        host.runCommands(uploadingRuntime,
                         "upload a --document 069 --title t --description 'd e' --type image/x\n"
                         "wait\n"
                         "upload ./a --metadata k=v --title u --metadata l==w\nwait\n",
                         {"--url", server.url()});
    EXPECT_EQ(
        result.output,
        R"(["createContentVersion",{"title":"t","description":"d e","contentDocumentId":"069",)"
        R"("fileData":{"handle":"...","name":"a","isFileReference":true,"size":5,)"
        R"("type":"image/x"}}])"
        "\ni1 upload: {\"title\":\"t\",\"status\":200}\n"
        R"(["createContentDocumentAndVersion",{"title":"u","description":"",)"
        R"("fileData":{"handle":"...","name":"a","isFileReference":true,"size":5,)"
        R"("type":"application/octet-stream"}},{"k":"v","l":"=w"}])"
        "\ni2 upload: {\"title\":\"u\",\"status\":200}\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Upload, WaitsForARuntimeThatComesLater) {
    LoopbackServer server(respondDone);
    const Host host;
    host.write("a", "12345");
    const auto result =
        host.runCommands(std::string("setTimeout(() => {") + uploadingRuntime + "}, 50)",
                         "upload a --title t\nwait\n", {"--url", server.url()});
    EXPECT_THAT(result.output, HasSubstr("i1 upload: {\"title\":\"t\",\"status\":200}\n"));
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(server.requests().at(0).body, HasSubstr("\r\n12345\r\n"));
}

TEST(Upload, OneOfFiveIsCanceledAndTheOthersArrive) {
    Event arrived("five uploads");
    Event canceled("the end of the third");
    LoopbackServer server(
        [&](const LoopbackServer::Request& request, LoopbackServer::Connection& connection) {
            arrived.signal();
            if (request.target == "/upload?title=t3") {
                connection.waitUntilClosed();
                canceled.signal();
                return;
            }
            canceled.wait();
            respondDone(request, connection);
        });
    const Host host;
    host.write("bundle.js", uploadingRuntime);
    host.write("file", largeFile());
    auto process = host.startWithInput(
        {"run", "bundle.js", "--memory", "--url", server.url(), "--commands", "-"});
    for (const char* title : {"t1", "t2", "t3", "t4", "t5"}) {
        process.write(std::string("-upload file --title ") + title + "\n");
    }
    arrived.wait(5);
    process.write("eval ZemNetworkAdapter.cancelRequest(tokens.t3)\n");
    process.closeInput();
    const auto result = process.wait();
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.output, HasSubstr("i3 upload: failed: executeAdapter error - canceled\n"));
    for (const char* name : {"1", "2", "4", "5"}) {
        EXPECT_THAT(result.output, HasSubstr(std::string("i") + name + " upload: {\"title\":\"t" +
                                             name + "\",\"status\":200}\n"));
    }
}

TEST(Upload, OfAServerThatIsLostFailsOnce) {
    LoopbackServer server([](const auto&, LoopbackServer::Connection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n12345");
        connection.reset();
    });
    const Host host;
    host.write("a", "12345");
    const auto result =
        host.runCommands(uploadingRuntime, "upload a --title t\nwait\n", {"--url", server.url()});
    EXPECT_THAT(result.output, HasSubstr("\ni1 upload: failed: executeAdapter error - "));
    EXPECT_THAT(result.errors,
                StartsWith("zem: commands.txt:1: i1 upload: executeAdapter error - "));
    EXPECT_EQ(std::ranges::count(result.errors, '\n'), 1);
    EXPECT_EQ(result.code, 4);
}

TEST(Upload, OfAServerThatHangsFailsOnceWhenTheTimeIsOver) {
    LoopbackServer server(
        [](const auto&, LoopbackServer::Connection& connection) { connection.waitUntilClosed(); });
    const Host host;
    host.write("a", "12345");
    const auto result = host.runCommands(uploadingRuntime, "upload a --title t\nwait\n",
                                         {"--url", server.url(), "--timeout", "0.2"});
    EXPECT_THAT(result.errors,
                StartsWith("zem: commands.txt:1: i1 upload: executeAdapter error - Operation timed "
                           "out after "));
    EXPECT_EQ(std::ranges::count(result.errors, '\n'), 1);
    EXPECT_EQ(result.code, 4);
}

// --- The network

TEST(NetworkCommand, SwitchesItOffAndOn) {
    LoopbackServer server(respondDone);
    const Host host;
    host.write("a", "12345");
    const auto result = host.runCommands(uploadingRuntime,
                                         "network off\nnetwork off\n-upload a --title t\nwait\n"
                                         "network on\nnetwork on\nupload a --title u\nwait\n",
                                         {"--url", server.url()});
    EXPECT_THAT(result.output, HasSubstr("\ni1 upload: failed: executeAdapter error - offline\n"));
    EXPECT_THAT(result.output, HasSubstr("\ni2 upload: {\"title\":\"u\",\"status\":200}\n"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(server.lines(), ElementsAre("POST /upload?title=u"));
}

TEST(NetworkCommand, SwitchesOnWhatBeganOffline) {
    LoopbackServer server(respondDone);
    const Host host;
    host.write("a", "12345");
    const auto result = host.runCommands(
        uploadingRuntime, "-upload a --title t\nwait\nnetwork on\nupload a --title u\nwait\n",
        {"--url", server.url(), "--offline"});
    EXPECT_THAT(result.output, HasSubstr("\ni1 upload: failed: executeAdapter error - offline\n"));
    EXPECT_THAT(result.output, HasSubstr("\ni2 upload: {\"title\":\"u\",\"status\":200}\n"));
    EXPECT_EQ(result.code, 0);
}

TEST(NetworkCommand, OffEndsWhatIsUnderWayOnce) {
    Event arrived("an upload and a download");
    Event closed("the ends of both");
    LoopbackServer server([&](const auto&, LoopbackServer::Connection& connection) {
        arrived.signal();
        connection.waitUntilClosed();
        closed.signal();
    });
    const Host host;
    host.write("bundle.js", uploadingRuntime);
    host.write("file", largeFile());
    auto process = host.startWithInput(
        {"run", "bundle.js", "--memory", "--url", server.url(), "--commands", "-"});
    process.write("-upload file --title t\neval ZemBinaryStorePlugin.cacheBinary('" + server.url() +
                  "/x', 10, console.log, (why) => console.log('cache:', why))\n");
    arrived.wait(2);
    process.write("network off\n");
    process.closeInput();
    const auto result = process.wait();
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
    const std::string failed = "i1 upload: failed: executeAdapter error - offline\n";
    const std::size_t at = result.output.find(failed);
    EXPECT_NE(at, std::string::npos) << result.output;
    EXPECT_EQ(result.output.find("i1 ", at + 1), std::string::npos) << result.output;
    EXPECT_THAT(result.output, HasSubstr("cache: offline\n"));
    closed.wait(2);
}

// --- Binaries

/// Caches /photo as `handle`, and says when it has.
std::string cachePhoto(const LoopbackServer& server) {
    return "eval new Promise((done) => ZemBinaryStorePlugin.cacheBinary('" + server.url() +
           "/photo', 1000, (handle) => done(globalThis.handle = handle), "
           "(why) => done('failed: ' + why)))\n";
}

TEST(Binary, IsListedAndSaved) {
    const std::string bytes = largeFile();
    LoopbackServer server([&](const auto&, LoopbackServer::Connection& connection) {
        connection.respond(200, "Content-Type: image/png\r\n", bytes);
    });
    const Host host;
    host.write("bundle.js", "");
    host.write("photo.png", "what was there before");
    auto process = host.startWithInput(
        {"run", "bundle.js", "--data", "data", "--keys", "keys", "--json", "--commands", "-"});
    process.write("binary list\n");
    process.waitForLine(R"({"command":"binary","name":null,"line":1,"data":[],"error":null})");
    process.write(cachePhoto(server) + "binary list\n");
    process.closeInput();
    const auto result = process.wait();
    EXPECT_EQ(result.errors, "");
    const std::string row = R"("line":3,"data":[{"handle":")";
    const std::size_t at = result.output.find(row);
    ASSERT_NE(at, std::string::npos) << result.output;
    const std::string handle = result.output.substr(at + row.size(), 36);
    EXPECT_THAT(
        result.output,
        HasSubstr(handle + R"(","type":"image/png","size":2097159,"kind":"cached","expiry":)"));
    EXPECT_THAT(result.output, HasSubstr(R"("canonicalUrls":[")" + server.url() + "/photo\"]}]"));

    host.write("commands.txt", "binary list\nbinary save " + handle + " photo.png\n");
    const auto saved = host.run(
        {"run", "bundle.js", "--data", "data", "--keys", "keys", "--commands", "commands.txt"});
    EXPECT_THAT(saved.output, StartsWith("binary list: 1 binary\n  HANDLE "));
    EXPECT_THAT(saved.output, HasSubstr("\n  " + handle + "  image/png  2.0 MB  cached  "));
    EXPECT_THAT(saved.output, testing::EndsWith("\nbinary save: 2097159 bytes\n"));
    EXPECT_EQ(saved.errors, "");
    EXPECT_EQ(saved.code, 0);
    EXPECT_TRUE(host.read("photo.png") == bytes);
}

TEST(Binary, OfALostConnectionIsNotKept) {
    LoopbackServer server([](const auto&, LoopbackServer::Connection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n12345");
        connection.reset();
    });
    const Host host;
    const auto result = host.runCommands("", cachePhoto(server) + "binary list\n");
    EXPECT_THAT(result.output, StartsWith("eval: 'failed: "));
    EXPECT_THAT(result.output, testing::EndsWith("'\nbinary list: no binaries\n"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

TEST(Binary, OfAServerThatHangsIsNotKept) {
    LoopbackServer server([](const auto&, LoopbackServer::Connection& connection) {
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n12345");
        connection.waitUntilClosed();
    });
    const Host host;
    const auto result =
        host.runCommands("", cachePhoto(server) + "binary list\n", {"--timeout", "0.2"});
    EXPECT_THAT(result.output, StartsWith("eval: 'failed: Operation timed out after "));
    EXPECT_THAT(result.output, testing::EndsWith("'\nbinary list: no binaries\n"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.code, 0);
}

/// Keeps "inside" as `handle`, and prints that.
constexpr const char* keep = R"(
    ZemBinaryStorePlugin.storeBinary(new TextEncoder().encode('inside'), 'text/plain', 6,
        (handle) => console.log(handle), console.error);
)";

TEST(Binary, IsSavedIntoAFileThatCanBeWritten) {
    struct Case {
        const char* file;
        const char* reason;
    };
    const Host host;
    host.write("bundle.js", keep);
    const Host::Words words{"run", "bundle.js", "--data", "data", "--keys", "keys"};
    const std::string handle = host.run(words).output.substr(0, 36);
    std::filesystem::create_directory(host.folder() / "folder");
    host.write("bundle.js", "");
    for (const auto& [file, reason] :
         {Case{"none/file", "No such file or directory"}, Case{"folder", "Is a directory"},
          Case{"/dev/full", "No space left on device"}}) {
        host.write("commands.txt", "binary save " + handle + " " + file + "\n");
        Host::Words saving = words;
        saving.insert(saving.end(), {"--commands", "commands.txt"});
        const auto result = host.run(saving);
        EXPECT_EQ(result.errors,
                  std::string("zem: commands.txt:1: cannot write ") + file + ": " + reason + "\n");
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.code, 4);
    }
    EXPECT_TRUE(std::filesystem::is_empty(host.folder() / "folder"));
}

} // namespace
