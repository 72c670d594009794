#pragma once

// nginx on loopback: HTTP/2 and TLS, with a certificate that is good, one that has expired and one
// of another name.

#include <Support/LoopbackServer.h>
#include <Support/Process.h>
#include <Support/TemporaryFolder.h>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace test {

/// Says which protocol it was asked in; "/length" says the length of a request's body,
/// "/redirect?to=URL" leads there, and what is PUT at "/files/NAME" is kept.
class SecureServer {
  public:
    SecureServer();

    std::string good() const { return secure(ports[0]); }
    /// The good certificate again, without HTTP/2.
    std::string old() const { return secure(ports[1]); }
    std::string expired() const { return secure(ports[2]); }
    std::string misnamed() const { return secure(ports[3]); }

    std::filesystem::path file(const std::string& name) const { return folder / ("files/" + name); }

    /// Trusts all of these certificates.
    std::filesystem::path authorities() const { return folder / "authorities.pem"; }

  private:
    static std::string secure(const RefusingPort& port) {
        return "https://127.0.0.1:" + std::to_string(port.port());
    }
    void makeCertificate(const std::string& name, const std::string& days,
                         const std::string& alternativeName);
    void writeConfiguration();

    TemporaryFolder folder;
    // The held ports: no other program gets one, and the server may listen on them.
    RefusingPort ports[4] = {RefusingPort(true), RefusingPort(true), RefusingPort(true),
                             RefusingPort(true)};
    std::unique_ptr<Process> process;
};

} // namespace test
