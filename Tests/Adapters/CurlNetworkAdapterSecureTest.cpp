// TLS and HTTP/2, with a real server.

#include <zem/Adapters/CurlNetworkAdapter.h>

#include <gmock/gmock.h>

#include <Adapters/NetworkCalls.h>
#include <Adapters/SecureServer.h>

using namespace zem;
using test::Call;
using test::get;
using test::LoopbackServer;
using testing::ElementsAre;
using testing::HasSubstr;

namespace {

class CurlNetworkAdapterSecure : public testing::Test {
  protected:
    static void SetUpTestSuite() { server = std::make_unique<test::SecureServer>(); }
    static void TearDownTestSuite() { server.reset(); }

    static std::shared_ptr<CurlNetworkAdapter> adapterFor(const std::string& url) {
        CurlNetworkAdapter::Options options;
        options.baseURL = url;
        options.certificateAuthorities = server->authorities();
        return CurlNetworkAdapter::create(options);
    }

    static std::string answerOf(const std::string& url) {
        return Call(*adapterFor(url), get("/")).text();
    }

    /// The answer of a secure server to a redirect that leads to `url`.
    static std::string answerOfRedirectTo(const std::string& url, const std::string& from) {
        Request request = get("/redirect?to=" + url);
        return Call(*adapterFor(from), request).text();
    }

    static inline std::unique_ptr<test::SecureServer> server;
};

} // namespace

TEST_F(CurlNetworkAdapterSecure, SpeaksHTTP2WhereTheServerOffersIt) {
    EXPECT_EQ(answerOf(server->good()), "200 HTTP/2.0");
    EXPECT_EQ(answerOf(server->old()), "200 HTTP/1.1");
}

TEST_F(CurlNetworkAdapterSecure, SendsEveryMethodByHTTP2) {
    const auto adapter = adapterFor(server->good());
    for (const auto& [method, text] : httpMethodTexts) {
        Request request = get("/length");
        request.method = method;
        request.body = "a body";
        const bool isHEAD = method == HTTPMethod::HEAD;
        EXPECT_EQ(Call(*adapter, request).text(), isHEAD ? "200 (none)" : "200 6") << text;
    }
    Request upload = get("/files/upload");
    upload.method = HTTPMethod::PUT;
    upload.bodyData = platform::Bytes(5'000'000, 'x');
    EXPECT_EQ(Call(*adapter, upload).text(), "201 (none)");
    EXPECT_EQ(std::filesystem::file_size(server->file("upload")), 5'000'000U);
}

TEST_F(CurlNetworkAdapterSecure, SendsManyAtOnceByHTTP2) {
    const auto adapter = adapterFor(server->good());
    std::vector<Call> calls;
    for (int count = 0; count < 100; ++count) {
        calls.emplace_back(*adapter, get("/"));
    }
    for (const Call& call : calls) {
        EXPECT_EQ(call.text(), "200 HTTP/2.0");
    }
}

TEST_F(CurlNetworkAdapterSecure, TakesTheSchemeOfItsBaseForAHostWithout) {
    const auto adapter = adapterFor("https://x.example");
    Request request = get("/");
    request.host = server->good().substr(std::string("https://").size());
    EXPECT_EQ(Call(*adapter, request).text(), "200 HTTP/2.0");
}

TEST_F(CurlNetworkAdapterSecure, RefusesACertificateThatHasExpired) {
    EXPECT_EQ(answerOf(server->expired()),
              "unspecified: SSL certificate problem: certificate has expired");
}

TEST_F(CurlNetworkAdapterSecure, RefusesACertificateOfAnotherName) {
    EXPECT_EQ(answerOf(server->misnamed()),
              "unspecified: SSL: no alternative certificate subject name matches target host name "
              "'127.0.0.1'");
}

TEST_F(CurlNetworkAdapterSecure, RefusesACertificateThatNoAuthorityKnows) {
    EXPECT_THAT(Call(*test::adapterFor(server->good()), get("/")).text(),
                HasSubstr("unspecified: SSL certificate problem: self-signed certificate"));
}

TEST_F(CurlNetworkAdapterSecure, FollowsRedirectsFromHTTPToHTTPS) {
    LoopbackServer plain([&](const auto&, LoopbackServer::Connection& connection) {
        connection.respond(302, "Location: " + server->good() + "/\r\n", "");
    });
    EXPECT_EQ(answerOf(plain.url()), "200 HTTP/2.0");
}

TEST_F(CurlNetworkAdapterSecure, FollowsRedirectsFromHTTPSToHTTPS) {
    EXPECT_EQ(answerOfRedirectTo(server->old() + "/", server->good()), "200 HTTP/1.1");
}

TEST_F(CurlNetworkAdapterSecure, FollowsNoRedirectFromHTTPSToHTTP) {
    LoopbackServer plain(
        [&](const LoopbackServer::Request&, LoopbackServer::Connection& connection) {
            connection.respond(
                302, "Location: " + server->good() + "/redirect?to=http://127.0.0.1:1/\r\n", "");
        });
    const std::string refused =
        "unspecified: redirect: expected an https URL after an https one, found an http one";
    EXPECT_EQ(answerOfRedirectTo(plain.url() + "/", server->good()), refused);
    EXPECT_THAT(plain.lines(), ElementsAre());
    // Up, and down again.
    EXPECT_EQ(answerOf(plain.url()), refused);
    EXPECT_THAT(plain.lines(), ElementsAre("GET /"));
}

TEST_F(CurlNetworkAdapterSecure, VerifiesWhereARedirectLeads) {
    EXPECT_EQ(answerOfRedirectTo(server->expired() + "/", server->good()),
              "unspecified: SSL certificate problem: certificate has expired");
}
