#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "ChildProcess.h"
#include "moxidom/MOXIDOM_Document.h"
#include "moxidom/MOXIDOM_Element.h"
#include "talvex/talvex.h"

// The toolkit's default road, TLS with verification, against real TLS peers:
// nginx in front of the spyne service, and the toolkit's own echo server.

namespace {
const char kSoapNs[] = "http://schemas.xmlsoap.org/soap/envelope/";
const char kServiceNs[] = "urn:talvex:interop";
const char kPython[] = "/usr/bin/python3";
const char kNginx[] = "/usr/sbin/nginx";

bool run(const std::string& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }

// A throw-away CA and a server certificate it signed for localhost and 127.0.0.1.
struct Certificates {
    std::string dir, ca, cert, key;
    bool ok = false;
    Certificates() {
        char pattern[] = "/tmp/talvex-tls-interop-XXXXXX";
        dir = ::mkdtemp(pattern) != nullptr ? pattern : "/tmp";
        ca = dir + "/ca.pem";
        cert = dir + "/server.pem";
        key = dir + "/server.key";
        const std::string d = "'" + dir + "'";
        ok = run("cd " + d + " && openssl req -x509 -newkey rsa:2048 -nodes -days 2 -keyout ca.key -out ca.pem"
                 " -subj '/CN=TALVEX interop CA'") &&
             run("cd " + d + " && openssl req -newkey rsa:2048 -nodes -keyout server.key -out server.csr"
                 " -subj '/CN=localhost'") &&
             run("cd " + d + " && printf 'subjectAltName=DNS:localhost,IP:127.0.0.1\\n' > san.ext && "
                 "openssl x509 -req -in server.csr -CA ca.pem -CAkey ca.key -CAcreateserial -days 2"
                 " -extfile san.ext -out server.pem");
    }
    ~Certificates() {
        std::error_code ignored;
        if (dir != "/tmp") std::filesystem::remove_all(dir, ignored);
    }
    std::string config() const {
        return "<sessionConfigDocument><caFile>" + ca + "</caFile></sessionConfigDocument>";
    }
};

MOXIDOM_Element operation(MOXIDOM_Document& doc, const std::string& name,
                          const std::vector<std::pair<std::string, std::string>>& arguments) {
    MOXIDOM_Element env = doc.createElementNS(kSoapNs, "soapenv:Envelope");
    doc.appendChild(env);
    MOXIDOM_Element call = env.appendElementNS(kSoapNs, "soapenv:Body").appendElementNS(kServiceNs, "t:" + name);
    for (const auto& a : arguments) call.appendElementNS(kServiceNs, "t:" + a.first).appendText(a.second);
    return env;
}

std::string resultOf(const MOXIDOM_Document& response, const std::string& name) {
    MOXIDOM_Element body = response.getDocumentElement().getFirstChildElement(kSoapNs, "Body");
    MOXIDOM_Element result =
        body.getFirstChildElement(kServiceNs, name + "Response").getFirstChildElement(kServiceNs, name + "Result");
    return result.isNull() ? "<no result>" : result.getTextContent();
}
}  // namespace

class NginxTlsInterop : public ::testing::Test {
protected:
    void SetUp() override {
        if (::access(kPython, X_OK) != 0) GTEST_SKIP() << "python3 is not installed";
        if (::access(kNginx, X_OK) != 0) GTEST_SKIP() << "nginx is not installed (Debian package nginx-light)";
        ASSERT_TRUE(certs.ok) << "the openssl command could not make the certificates";
        spynePort = ChildProcess::freePort();
        spyne = std::make_unique<ChildProcess>(
            std::vector<std::string>{kPython, std::string(TALVEX_TEST_SOURCE_DIR) + "/tests/interop/spyne_service.py",
                                     std::to_string(spynePort)},
            certs.dir, certs.dir + "/spyne.log");
        if (!spyne->waitForPort(spynePort, 15000)) {
            if (spyne->log().find("No module named 'spyne'") != std::string::npos)
                GTEST_SKIP() << "spyne is not installed (Debian package python3-spyne)";
            FAIL() << "the spyne service did not start:\n" << spyne->log();
        }
        nginxPort = ChildProcess::freePort();
        const std::string& d = certs.dir;
        std::ofstream(d + "/nginx.conf")
            << "daemon off;\nmaster_process off;\nworker_processes 1;\npid " << d << "/nginx.pid;\n"
            << "error_log " << d << "/error.log warn;\nevents { worker_connections 64; }\nhttp {\n  access_log off;\n"
            << "  client_body_temp_path " << d << "/client_body;\n  proxy_temp_path " << d << "/proxy;\n"
            << "  fastcgi_temp_path " << d << "/fastcgi;\n  uwsgi_temp_path " << d << "/uwsgi;\n"
            << "  scgi_temp_path " << d << "/scgi;\n"
            << "  upstream spyne { server 127.0.0.1:" << spynePort << "; keepalive 4; }\n"
            << "  server {\n    listen 127.0.0.1:" << nginxPort << " ssl;\n"
            << "    ssl_certificate " << certs.cert << ";\n    ssl_certificate_key " << certs.key << ";\n"
            << "    ssl_protocols TLSv1.2 TLSv1.3;\n    keepalive_requests 1000;\n"
            << "    location / {\n      proxy_pass http://spyne;\n      proxy_http_version 1.1;\n"
            << "      proxy_set_header Connection \"\";\n"
            << "      add_header X-Connection-Requests $connection_requests always;\n    }\n  }\n}\n";
        nginx = std::make_unique<ChildProcess>(
            std::vector<std::string>{kNginx, "-e", d + "/error.log", "-c", d + "/nginx.conf", "-p", d}, d,
            d + "/nginx.out");
        ASSERT_TRUE(nginx->waitForPort(nginxPort, 10000)) << "nginx did not start:\n" << nginx->log();
        config = certs.config();
    }

    void TearDown() override {
        if (nginx) nginx->stop();
        if (spyne) spyne->stop();
    }

    std::string call(TALVEXSession& s, const std::string& name,
                     const std::vector<std::pair<std::string, std::string>>& arguments) {
        MOXIDOM_Document request, response;
        MOXIDOM_Element env = operation(request, name, arguments);
        s.doRequest(env, response);
        return resultOf(response, name);
    }

    Certificates certs;
    std::string config;
    int spynePort = 0, nginxPort = 0;
    std::unique_ptr<ChildProcess> spyne, nginx;
    TALVEX toolkit;  // default settings: secure sockets
};

TEST_F(NginxTlsInterop, DefaultSettingsGiveAVerifiedSessionThatKeepsItsConnection) {
    ASSERT_EQ(1, toolkit.getUseSSL());
    const std::string url = "https://localhost:" + std::to_string(nginxPort) + "/";
    std::unique_ptr<TALVEXSession> s(toolkit.getSession(url.c_str(), config.c_str(), 10));
    EXPECT_EQ("42", call(*s, "add", {{"a", "2"}, {"b", "40"}}));
    for (int i = 0; i < 20; ++i) EXPECT_EQ(std::to_string(3 * i), call(*s, "add", {{"a", std::to_string(i)}, {"b", std::to_string(2 * i)}}));
    MOXIDOM_Document request, response;
    MOXIDOM_Element env = operation(request, "echo", {{"text", "über <tls> & co"}});
    s->sendRequest(env);
    TALVEXMessageReader& r = s->openResponse();
    r.getEnvelope(response);
    EXPECT_STREQ("22", r.getHeader("x-connection-requests")) << "every call went over one TLS connection";
    s->closeResponse(r);
    EXPECT_EQ("über <tls> & co", resultOf(response, "echo"));
}

TEST_F(NginxTlsInterop, NonBlockingSessionByHostAndPort) {
    toolkit.setUseNonBlockingSockets(1);
    std::unique_ptr<TALVEXSession> s(toolkit.getSession("127.0.0.1", nginxPort, "/", config.c_str(), 10));
    EXPECT_EQ("42", call(*s, "add", {{"a", "40"}, {"b", "2"}}));
    s->getSessionSocket()->getInputStream()->setTimeout(5);
    EXPECT_EQ("7", call(*s, "add", {{"a", "3"}, {"b", "4"}}));
}

TEST_F(NginxTlsInterop, AnUntrustedServerIsRefusedWithTheReason) {
    const std::string url = "https://localhost:" + std::to_string(nginxPort) + "/";
    const char* systemTrustOnly = "<sessionConfigDocument></sessionConfigDocument>";
    try {
        std::unique_ptr<TALVEXSession> s(toolkit.getSession(url.c_str(), systemTrustOnly, 1));
        FAIL() << "a certificate from an unknown CA was accepted";
    } catch (TALVEXException& e) {
        EXPECT_EQ(5, e.getCode());
        ASSERT_EQ(2u, e.getMessageCount());
        EXPECT_NE(std::string::npos, e.getMessageAt(1).format().str().find("certificate verify failed"))
            << e.toString().str();
        EXPECT_EQ("TALVEX::getSession", e.getBackTrace().back().function);
    }
}

TEST(EchoServerTls, SixtyFourMebibyteAttachmentComesBackByteForByte) {
    const std::string server = std::string(TALVEX_TEST_BINARY_DIR) + "/bin/talvex-echo-server";
    if (::access(server.c_str(), X_OK) != 0) GTEST_SKIP() << "talvex-echo-server is not built";
    Certificates certs;
    ASSERT_TRUE(certs.ok);
    int port = ChildProcess::freePort();
    ChildProcess echo({server, "--tls", "--cert", certs.cert, "--key", certs.key, "--port", std::to_string(port)},
                      certs.dir, certs.dir + "/echo.log");
    ASSERT_TRUE(echo.waitForPort(port, 10000)) << echo.log();

    TALVEX toolkit;
    const std::string config = certs.config();
    const std::string url = "https://127.0.0.1:" + std::to_string(port) + "/echo";
    std::unique_ptr<TALVEXSession> s(toolkit.getSession(url.c_str(), config.c_str(), 10));

    const size_t total = 64u * 1024 * 1024;
    std::string piece(1024 * 1024, '\0');
    auto byteAt = [](size_t i) { return static_cast<char>((i * 131 + (i >> 20)) & 0xFF); };

    TALVEXMessageWriter& w = s->openRequest(1);
    PNXOutputStream& env = w.openEnvelope();
    const std::string envelope = "<s:Envelope xmlns:s=\"" + std::string(kSoapNs) + "\"><s:Body/></s:Envelope>";
    env.write(envelope.data(), static_cast<unsigned>(envelope.size()));
    w.closeEnvelope(env);
    PNXOutputStream& att = w.openAttachment("application/octet-stream", nullptr, "big", 0);
    for (size_t off = 0; off < total; off += piece.size()) {
        for (size_t i = 0; i < piece.size(); ++i) piece[i] = byteAt(off + i);
        att.write(piece.data(), static_cast<unsigned>(piece.size()));
    }
    w.closeAttachment(att);
    s->closeRequest(w);

    TALVEXMessageReader& r = s->openResponse();
    MOXIDOM_Document response;
    r.getEnvelope(response);
    ASSERT_EQ(1, r.hasMoreAttachments());
    TALVEXAttachmentReader& a = r.openNextAttachment();
    EXPECT_STREQ("big", a.getContentId());
    PNXInputStream& in = a.getInputStream();
    size_t got = 0, mismatches = 0;
    char buf[65536];
    for (unsigned n; (n = in.read(buf, sizeof buf)) != PNX_EOF; got += n)
        for (unsigned i = 0; i < n; ++i) mismatches += buf[i] != byteAt(got + i);
    r.closeAttachment(a);
    s->closeResponse(r);
    EXPECT_EQ(total, got);
    EXPECT_EQ(0u, mismatches);
}
