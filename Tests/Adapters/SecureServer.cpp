#include <fmt/core.h>

#include <Adapters/SecureServer.h>
#include <Support/Wait.h>
#include <arpa/inet.h>
#include <fstream>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace test {

namespace {

bool acceptsConnections(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool accepted =
        connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(descriptor);
    return accepted;
}

void runOpenSSL(std::vector<std::string> command) {
    command.insert(command.begin(), "/usr/bin/openssl");
    const Process::Result result = Process(command).wait();
    if (result.code != 0) {
        throw std::runtime_error("openssl: " + result.errors);
    }
}

std::string serverBlock(int port, const std::string& certificate, bool speaksHTTP2) {
    return fmt::format(R"(
    server {{
        listen 127.0.0.1:{} ssl {} reuseport;
        ssl_certificate {}.pem;
        ssl_certificate_key {}.key;
        location / {{ return 200 $server_protocol; }}
        location /length {{ return 200 $content_length; }}
        location /files {{ root .; dav_methods PUT; create_full_put_path on; }}
        location /redirect {{ return 307 $arg_to; }}
    }})",
                       port, speaksHTTP2 ? "http2" : "", certificate, certificate);
}

} // namespace

SecureServer::SecureServer() {
    makeCertificate("good", "2", "IP:127.0.0.1");
    makeCertificate("expired", "-1", "IP:127.0.0.1");
    makeCertificate("misnamed", "2", "DNS:elsewhere.example");
    writeConfiguration();
    process = std::make_unique<Process>(std::vector<std::string>{
        "/usr/sbin/nginx", "-p", folder.path().string(), "-c", "nginx.conf", "-e", "stderr"});
    for (const RefusingPort& port : ports) {
        waitUntil("nginx", [&] { return acceptsConnections(port.port()); });
    }
}

/// Signed by its own key. Only the second command takes an end in the past.
void SecureServer::makeCertificate(const std::string& name, const std::string& days,
                                   const std::string& alternativeName) {
    const auto file = [&](const std::string& suffix) {
        return (folder / (name + suffix)).string();
    };
    runOpenSSL({"req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes",
                "-subj", "/CN=" + name, "-addext", "subjectAltName=" + alternativeName, "-keyout",
                file(".key"), "-out", file(".csr")});
    runOpenSSL({"x509", "-req", "-in", file(".csr"), "-signkey", file(".key"), "-days", days,
                "-copy_extensions", "copyall", "-out", file(".pem")});
    std::ifstream made(file(".pem"));
    std::ofstream(authorities(), std::ios::app) << made.rdbuf();
}

void SecureServer::writeConfiguration() {
    std::ofstream(folder / "nginx.conf")
        << R"(
daemon off;
master_process off;
pid nginx.pid;
events {}
http {
    access_log off;
    client_max_body_size 100m;
    client_body_buffer_size 16k;
    client_body_temp_path bodies;
    proxy_temp_path proxy;
    fastcgi_temp_path fastcgi;
    uwsgi_temp_path uwsgi;
    scgi_temp_path scgi;)"
        << serverBlock(ports[0].port(), "good", true) << serverBlock(ports[1].port(), "good", false)
        << serverBlock(ports[2].port(), "expired", true)
        << serverBlock(ports[3].port(), "misnamed", true) << "\n}\n";
}

} // namespace test
