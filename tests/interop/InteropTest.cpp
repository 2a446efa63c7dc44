#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "ChildProcess.h"
#include "moxidom/MOXIDOM_Document.h"
#include "moxidom/MOXIDOM_Element.h"
#include "talvex/TALVEX.h"

// Sessions against real peers: a SOAP 1.1 service written with spyne and
// served by Python's wsgiref, directly and behind nginx as a reverse proxy.

namespace {
const char kSoapNs[] = "http://schemas.xmlsoap.org/soap/envelope/";
const char kServiceNs[] = "urn:talvex:interop";
const char kPython[] = "/usr/bin/python3";
const char kNginx[] = "/usr/sbin/nginx";

MOXIDOM_Element operation(MOXIDOM_Document& doc, const std::string& name,
                          const std::vector<std::pair<std::string, std::string>>& arguments) {
    MOXIDOM_Element env = doc.createElementNS(kSoapNs, "soapenv:Envelope");
    doc.appendChild(env);
    MOXIDOM_Element call = env.appendElementNS(kSoapNs, "soapenv:Body").appendElementNS(kServiceNs, "t:" + name);
    for (const auto& a : arguments) call.appendElementNS(kServiceNs, "t:" + a.first).appendText(a.second);
    return env;
}

// The text of <name>Result inside <name>Response of the response envelope.
std::string resultOf(const MOXIDOM_Document& response, const std::string& name) {
    MOXIDOM_Element body = response.getDocumentElement().getFirstChildElement(kSoapNs, "Body");
    MOXIDOM_Element reply = body.getFirstChildElement(kServiceNs, name + "Response");
    MOXIDOM_Element result = reply.getFirstChildElement(kServiceNs, name + "Result");
    return result.isNull() ? "<no " + name + "Result>" : result.getTextContent();
}

// Text with non-ASCII characters and everything XML must escape.
std::string trickyText() {
    return "Grüße aus Köln, naïve café — \xe2\x9c\x93 \xe6\x97\xa5\xe6\x9c\xac; <tag attr=\"v\"> & 'apos' ]]> a<b>c";
}

std::string makeTempDir() {
    char dir[] = "/tmp/talvex-interop-XXXXXX";
    return ::mkdtemp(dir) != nullptr ? dir : "/tmp";
}
}  // namespace

class SpyneInterop : public ::testing::Test {
protected:
    void SetUp() override {
        if (::access(kPython, X_OK) != 0) GTEST_SKIP() << kPython << " is not installed (Debian package python3)";
        m_dir = makeTempDir();
        spynePort = ChildProcess::freePort();
        const std::string script = std::string(TALVEX_TEST_SOURCE_DIR) + "/tests/interop/spyne_service.py";
        spyne = std::make_unique<ChildProcess>(
            std::vector<std::string>{kPython, script, std::to_string(spynePort)}, m_dir, m_dir + "/spyne.log");
        if (!spyne->waitForPort(spynePort, 15000)) {
            const std::string log = spyne->log();
            if (log.find("No module named 'spyne'") != std::string::npos)
                GTEST_SKIP() << "spyne is not installed (Debian package python3-spyne)";
            FAIL() << "the spyne service did not start:\n" << log;
        }
        toolkit.setUseVLT(0);
    }

    void TearDown() override {
        session.reset();
        if (spyne) spyne->stop();
        if (!m_dir.empty() && m_dir != "/tmp") {
            std::error_code ignored;
            std::filesystem::remove_all(m_dir, ignored);
        }
    }

    std::string call(const std::string& name, const std::vector<std::pair<std::string, std::string>>& arguments) {
        MOXIDOM_Document request;
        MOXIDOM_Element env = operation(request, name, arguments);
        MOXIDOM_Document response;
        session->doRequest(env, response);
        return resultOf(response, name);
    }

    std::string m_dir;
    int spynePort = 0;
    std::unique_ptr<ChildProcess> spyne;
    TALVEX toolkit;
    std::unique_ptr<TALVEXSession> session;
};

TEST_F(SpyneInterop, AddAndEchoWithAReconnectBetweenCalls) {
    session.reset(toolkit.getSession("127.0.0.1", spynePort, "/", nullptr, 5));
    // wsgiref reads only bodies with a length and closes after each response.
    session->setProperty("send-content-length", 1);
    EXPECT_EQ("42", call("add", {{"a", "2"}, {"b", "40"}}));
    session->reconnect(5);
    EXPECT_EQ(trickyText(), call("echo", {{"text", trickyText()}}));
    for (int i = 0; i < 8; ++i) {
        session->reconnect(5);
        EXPECT_EQ(std::to_string(i * i - 1000), call("add", {{"a", std::to_string(i * i)}, {"b", "-1000"}}));
    }
}

TEST_F(SpyneInterop, LongTextRoundTripsByUrl) {
    const std::string url = "http://127.0.0.1:" + std::to_string(spynePort) + "/";
    session.reset(toolkit.getSession(url.c_str(), nullptr, 5));
    session->setProperty("send-content-length", 1);
    std::string text;
    while (text.size() < 30000) text += trickyText() + "\n";
    EXPECT_EQ(text, call("echo", {{"text", text}}));
}

TEST_F(SpyneInterop, UnknownOperationComesBackAsAFaultWith500) {
    session.reset(toolkit.getSession("127.0.0.1", spynePort, "/", nullptr, 5));
    session->setProperty("send-content-length", 1);
    MOXIDOM_Document request;
    MOXIDOM_Element env = operation(request, "noSuchOperation", {});
    session->sendRequest(env);
    TALVEXMessageReader& r = session->openResponse();
    MOXIDOM_Document response;
    r.getEnvelope(response);
    ASSERT_NE(nullptr, r.getHeader("talvex-status-code"));
    EXPECT_STREQ("500", r.getHeader("talvex-status-code"));
    EXPECT_STREQ("HTTP/1.0", r.getHeader("talvex-http-version"));
    session->closeResponse(r);
    MOXIDOM_Element fault = response.getDocumentElement().getFirstChildElement(kSoapNs, "Body").getFirstChildElement(
        kSoapNs, "Fault");
    ASSERT_FALSE(fault.isNull());
    EXPECT_EQ(0u, fault.getFirstChildElement("", "faultcode").getTextContent().find("soap11env:Client"));

    session->reconnect(5);
    EXPECT_EQ("3", call("add", {{"a", "1"}, {"b", "2"}}));
}

class NginxInterop : public SpyneInterop {
protected:
    void SetUp() override {
        SpyneInterop::SetUp();
        if (IsSkipped() || HasFatalFailure()) return;
        if (::access(kNginx, X_OK) != 0) GTEST_SKIP() << kNginx << " is not installed (Debian package nginx-light)";
        nginxPort = ChildProcess::freePort();
        const std::string conf = m_dir + "/nginx.conf";
        std::ofstream(conf) << "daemon off;\n"
                               "master_process off;\n"
                               "worker_processes 1;\n"
                               "pid "
                            << m_dir << "/nginx.pid;\n"
                            << "error_log " << m_dir << "/error.log warn;\n"
                            << "events { worker_connections 64; }\n"
                               "http {\n"
                               "  access_log off;\n"
                               "  client_body_temp_path "
                            << m_dir << "/client_body;\n"
                            << "  proxy_temp_path " << m_dir << "/proxy;\n"
                            << "  fastcgi_temp_path " << m_dir << "/fastcgi;\n"
                            << "  uwsgi_temp_path " << m_dir << "/uwsgi;\n"
                            << "  scgi_temp_path " << m_dir << "/scgi;\n"
                            << "  upstream spyne { server 127.0.0.1:" << spynePort << "; keepalive 4; }\n"
                            << "  server {\n"
                               "    listen 127.0.0.1:"
                            << nginxPort << ";\n"
                            << "    keepalive_requests 1000;\n"
                               "    location / {\n"
                               "      proxy_pass http://spyne;\n"
                               "      proxy_http_version 1.1;\n"
                               "      proxy_set_header Connection \"\";\n"
                               "      add_header X-Connection $connection always;\n"
                               "      add_header X-Connection-Requests $connection_requests always;\n"
                               "    }\n"
                               "  }\n"
                               "}\n";
        nginx = std::make_unique<ChildProcess>(
            std::vector<std::string>{kNginx, "-e", m_dir + "/error.log", "-c", conf, "-p", m_dir}, m_dir,
            m_dir + "/nginx.out");
        if (!nginx->waitForPort(nginxPort, 10000)) {
            std::ifstream errors(m_dir + "/error.log");
            std::string text((std::istreambuf_iterator<char>(errors)), std::istreambuf_iterator<char>());
            FAIL() << "nginx did not start:\n" << nginx->log() << text;
        }
        session.reset(toolkit.getSession("127.0.0.1", nginxPort, "/", nullptr, 5));
    }

    void TearDown() override {
        session.reset();
        if (nginx) nginx->stop();
        SpyneInterop::TearDown();
    }

    int nginxPort = 0;
    std::unique_ptr<ChildProcess> nginx;
};

TEST_F(NginxInterop, ChunkedRequestsKeepOneConnectionAlive) {
    // Small chunks, so that every request body arrives in many of them.
    session->setProperty("chunk-size", 64);
    std::string connection;
    for (int i = 0; i < 50; ++i) {
        SCOPED_TRACE("call " + std::to_string(i));
        MOXIDOM_Document request;
        MOXIDOM_Element env = i % 2 == 0 ? operation(request, "add", {{"a", std::to_string(i)}, {"b", "1000"}})
                                         : operation(request, "echo", {{"text", trickyText()}});
        session->sendRequest(env);
        TALVEXMessageReader& r = session->openResponse();
        MOXIDOM_Document response;
        r.getEnvelope(response);
        ASSERT_NE(nullptr, r.getHeader("x-connection"));
        ASSERT_NE(nullptr, r.getHeader("x-connection-requests"));
        EXPECT_STREQ("200", r.getHeader("talvex-status-code"));
        if (i == 0) connection = r.getHeader("x-connection");
        EXPECT_EQ(connection, r.getHeader("x-connection")) << "one connection carries every call";
        EXPECT_EQ(std::to_string(i + 1), r.getHeader("x-connection-requests"));
        session->closeResponse(r);
        if (i % 2 == 0)
            EXPECT_EQ(std::to_string(i + 1000), resultOf(response, "add"));
        else
            EXPECT_EQ(trickyText(), resultOf(response, "echo"));
    }
}

TEST_F(NginxInterop, FiftyDoRequestCallsOnOneSession) {
    for (int i = 0; i < 50; ++i) EXPECT_EQ(std::to_string(2 * i), call("add", {{"a", std::to_string(i)}, {"b", std::to_string(i)}}));
    std::string text;
    while (text.size() < 20000) text += trickyText();
    EXPECT_EQ(text, call("echo", {{"text", text}}));

    // The next call is still the same connection's.
    MOXIDOM_Document request;
    MOXIDOM_Element env = operation(request, "add", {{"a", "40"}, {"b", "2"}});
    session->sendRequest(env);
    TALVEXMessageReader& r = session->openResponse();
    MOXIDOM_Document response;
    r.getEnvelope(response);
    ASSERT_NE(nullptr, r.getHeader("x-connection-requests"));
    EXPECT_STREQ("52", r.getHeader("x-connection-requests"));
    session->closeResponse(r);
    EXPECT_EQ("42", resultOf(response, "add"));
}
