#include <dirent.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "../session/CaughtFailure.h"
#include "SoapEchoEndpoint.h"
#include "moxidom/MOXIDOM_Document.h"
#include "moxidom/MOXIDOM_Element.h"
#include "moxidom/XmlUrl.h"
#include "session/TALVEXSessionImp.h"
#include "talvex/TALVEX.h"
#include "talvex/TALVEXException.h"
#include "talvex/TALVEXSocketInputStream.h"
#include "transport/TALVEXSocketNonSSL.h"
#include "transport/TALVEXSocketSSL.h"

// The toolkit object's factory: sockets of the selected kind, and sessions
// that are connected when returned and leave nothing behind when they fail.

namespace {
const char kSoapNs[] = "http://schemas.xmlsoap.org/soap/envelope/";

int openDescriptors() {
    int n = 0;
    if (DIR* d = ::opendir("/proc/self/fd")) {
        while (::readdir(d) != nullptr) ++n;
        ::closedir(d);
    }
    return n;
}

// Descriptors are released by other threads too (the endpoint's); give them a moment.
bool descriptorsBackTo(int count) {
    for (int i = 0; i < 200; ++i) {
        if (openDescriptors() <= count) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

// A loopback port that refuses connections: bound, never listening.
class RefusingPort {
public:
    RefusingPort() {
        m_fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        ::bind(m_fd, reinterpret_cast<sockaddr*>(&a), len);
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&a), &len);
        m_port = ntohs(a.sin_port);
    }
    ~RefusingPort() { ::close(m_fd); }
    int port() const { return m_port; }

private:
    int m_fd;
    int m_port;
};

std::string echoThrough(TALVEXSession& session, const std::string& text) {
    MOXIDOM_Document request;
    MOXIDOM_Element env = request.createElementNS(kSoapNs, "soapenv:Envelope");
    request.appendChild(env);
    env.appendElementNS(kSoapNs, "soapenv:Body").appendText(text);
    MOXIDOM_Document response;
    session.doRequest(env, response);
    return response.getDocumentElement().getTextContent();
}

std::string uriPathOf(TALVEXSession* session) {
    auto* imp = dynamic_cast<TALVEXSessionImp*>(session);
    return imp != nullptr ? imp->getUriPath() : "<not a TALVEXSessionImp>";
}

long elapsedMs(std::chrono::steady_clock::time_point since) {
    return static_cast<long>(
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - since).count());
}
}  // namespace

TEST(FactorySocket, KindFollowsTheSecureSocketSetting) {
    TALVEX toolkit;
    std::unique_ptr<TALVEXSocket> secure(toolkit.getSocket());
    EXPECT_NE(nullptr, dynamic_cast<TALVEXSocketSSL*>(secure.get())) << "a fresh toolkit object makes secure sockets";

    toolkit.setUseVLT(0);
    std::unique_ptr<TALVEXSocket> plain(toolkit.getSocket());
    EXPECT_NE(nullptr, dynamic_cast<TALVEXSocketNonSSL*>(plain.get()));

    toolkit.setUseVLT(7);
    EXPECT_EQ(7, toolkit.getUseSSL());
    std::unique_ptr<TALVEXSocket> again(toolkit.getSocket());
    EXPECT_NE(nullptr, dynamic_cast<TALVEXSocketSSL*>(again.get()));

    std::unique_ptr<TALVEX> made(TALVEX::newInstance());
    EXPECT_EQ(1, made->getUseSSL());
    EXPECT_EQ(0, made->getUseNonBlockingSockets());
}

TEST(FactorySocket, SocketsAreNotConnectedAndCarryTheNonBlockingSetting) {
    for (int secure : {0, 1}) {
        for (int nonBlocking : {0, 1, 5}) {
            TALVEX toolkit;
            toolkit.setUseVLT(secure);
            toolkit.setUseNonBlockingSockets(nonBlocking);
            std::unique_ptr<TALVEXSocket> s(toolkit.getSocket());
            SCOPED_TRACE("secure " + std::to_string(secure) + ", non-blocking " + std::to_string(nonBlocking));
            EXPECT_EQ(nonBlocking, s->isNonBlockingSocket());
            EXPECT_EQ(0, s->getPort());
            EXPECT_EQ(0xFFFE, s->getIPAddress().ss_family) << "no endpoint yet: the local-address marker";
            EXPECT_EQ(0, s->getTimeLimitSec());
            ASSERT_NE(nullptr, s->getInputStream());
            ASSERT_NE(nullptr, s->getOutputStream());
        }
    }
    // An unconnected plain socket reads nothing and does not wait.
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    std::unique_ptr<TALVEXSocket> s(toolkit.getSocket());
    char buf[8];
    EXPECT_EQ(0u, s->getInputStream()->read(buf, sizeof buf));
}

TEST(FactorySession, ByHostAndPortIsConnectedAndKeepsThePath) {
    SoapEchoEndpoint endpoint;
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", endpoint.port(), "/soap/svc", nullptr, 5));
    ASSERT_NE(nullptr, session);
    EXPECT_NE(nullptr, dynamic_cast<TALVEXSocketNonSSL*>(session->getSessionSocket()));
    EXPECT_EQ(endpoint.port(), session->getSessionSocket()->getPort());
    EXPECT_EQ("/soap/svc", uriPathOf(session.get()));
    for (int i = 0; i < 200 && endpoint.accepted() == 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    EXPECT_EQ(1, endpoint.accepted()) << "connected before the first request";

    EXPECT_EQ("by host", echoThrough(*session, "by host"));
    EXPECT_EQ("/soap/svc", endpoint.lastRequest().uri);
    EXPECT_EQ("127.0.0.1:" + std::to_string(endpoint.port()), endpoint.lastRequest().header("host"));
    EXPECT_EQ(1, endpoint.accepted());
}

TEST(FactorySession, HostTextAsGivenIsTheHostHeaderAlsoAfterReconnect) {
    SoapEchoEndpoint endpoint;
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    // "127.1" is 127.0.0.1 written short: same address, different text.
    std::unique_ptr<TALVEXSession> session;
    CaughtFailure f = CaughtFailure::from(
        [&] { session.reset(toolkit.getSession("127.1", endpoint.port(), "/", nullptr, 5)); });
    if (f.code() == 33) GTEST_SKIP() << "the resolver does not take the short address form";
    ASSERT_FALSE(f.thrown()) << f.describeTrace();
    const std::string authority = "127.1:" + std::to_string(endpoint.port());
    EXPECT_EQ("short", echoThrough(*session, "short"));
    EXPECT_EQ(authority, endpoint.lastRequest().header("host"));
    session->reconnect(5);
    EXPECT_EQ("again", echoThrough(*session, "again"));
    EXPECT_EQ(authority, endpoint.lastRequest().header("host"));
    EXPECT_EQ(2, endpoint.accepted());
}

TEST(FactorySession, ByHostWithNonBlockingSocketsHandsTheSettingOn) {
    SoapEchoEndpoint endpoint;
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    toolkit.setUseNonBlockingSockets(1);
    std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", endpoint.port(), "/", nullptr, 5));
    EXPECT_EQ(1, session->getSessionSocket()->isNonBlockingSocket());
    // A non-blocking read waits only under a time limit.
    session->getSessionSocket()->getInputStream()->setTimeout(5);
    EXPECT_EQ("non-blocking", echoThrough(*session, "non-blocking"));
}

TEST(FactorySession, ByUrlTakesThePathXmlUrlGives) {
    SoapEchoEndpoint endpoint;
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    for (const std::string path : {"/a/b?x=1&y=%20z#fragment", "", "/svc/"}) {
        const std::string url = "http://127.0.0.1:" + std::to_string(endpoint.port()) + path;
        SCOPED_TRACE(url);
        const std::string expected = XmlUrl(I18NString(url.c_str())).getPath().str();
        std::unique_ptr<TALVEXSession> session(toolkit.getSession(url.c_str(), nullptr, 5));
        ASSERT_NE(nullptr, session);
        EXPECT_EQ(expected, uriPathOf(session.get()));
        EXPECT_EQ("by url", echoThrough(*session, "by url"));
        EXPECT_EQ(expected, endpoint.lastRequest().uri);
        EXPECT_EQ("127.0.0.1:" + std::to_string(endpoint.port()), endpoint.lastRequest().header("host"));
    }
    EXPECT_EQ("/a/b?x=1&y=%20z", XmlUrl(I18NString("http://h:1/a/b?x=1&y=%20z#fragment")).getPath().str());
    EXPECT_EQ("/", XmlUrl(I18NString("http://h:1")).getPath().str());
}

TEST(FactorySession, ByUrlWithAQueryRightAfterThePortNamesHostAndPortOnly) {
    SoapEchoEndpoint endpoint;
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    for (const std::string rest : {"?only=query", "#fragment"}) {
        const std::string url = "http://127.0.0.1:" + std::to_string(endpoint.port()) + rest;
        SCOPED_TRACE(url);
        std::unique_ptr<TALVEXSession> session(toolkit.getSession(url.c_str(), nullptr, 5));
        EXPECT_EQ(XmlUrl(I18NString(url.c_str())).getPath().str(), uriPathOf(session.get()));
        EXPECT_EQ("query", echoThrough(*session, "query"));
        EXPECT_EQ("127.0.0.1:" + std::to_string(endpoint.port()), endpoint.lastRequest().header("host"));
    }
}

TEST(FactorySession, Ipv6AddressIsBracketedInTheHostHeader) {
    std::unique_ptr<SoapEchoEndpoint> endpoint;
    try {
        endpoint = std::make_unique<SoapEchoEndpoint>(true);
    } catch (const std::exception&) {
        GTEST_SKIP() << "no IPv6 loopback on this machine";
    }
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    const std::string authority = "[::1]:" + std::to_string(endpoint->port());
    std::unique_ptr<TALVEXSession> byHost(toolkit.getSession("::1", endpoint->port(), "/v6", nullptr, 5));
    EXPECT_EQ("v6", echoThrough(*byHost, "v6"));
    EXPECT_EQ(authority, endpoint->lastRequest().header("host"));
    EXPECT_EQ("/v6", endpoint->lastRequest().uri);

    std::unique_ptr<TALVEXSession> byUrl(toolkit.getSession(endpoint->url("/v6/url").c_str(), nullptr, 5));
    EXPECT_EQ("v6 url", echoThrough(*byUrl, "v6 url"));
    EXPECT_EQ(authority, endpoint->lastRequest().header("host"));
    EXPECT_EQ("/v6/url", endpoint->lastRequest().uri);
}

TEST(FactorySession, HostThatDoesNotResolveRaisesCode33) {
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    const int before = openDescriptors();
    CaughtFailure f = CaughtFailure::from([&] { toolkit.getSession("no-such-host.invalid", 80, "/", nullptr, 1); });
    EXPECT_EQ("TALVEXException", f.name());
    EXPECT_EQ(33, f.code());
    ASSERT_EQ(1u, f.messages().size());
    EXPECT_EQ(0xF2AB213Du, f.messages()[0].number);
    ASSERT_EQ(1u, f.messages()[0].parameters.size());
    EXPECT_EQ("no-such-host.invalid", f.messages()[0].parameters[0]);
    ASSERT_EQ(2u, f.trace().size()) << f.describeTrace();
    EXPECT_EQ("TALVEX", f.trace()[0].unit);
    EXPECT_EQ(107, f.trace()[0].line);
    EXPECT_EQ("TALVEX::getSession", f.trace()[0].function);
    EXPECT_EQ("MOX_THROW", f.trace()[0].kind);
    EXPECT_EQ("TALVEX", f.trace()[1].unit);
    EXPECT_EQ(117, f.trace()[1].line);
    EXPECT_EQ("TALVEX::getSession", f.trace()[1].function);
    EXPECT_EQ("MOX_RETHROW", f.trace()[1].kind);
    EXPECT_TRUE(descriptorsBackTo(before));

    // Secure sockets are refused the same way, before any socket exists.
    TALVEX secure;
    CaughtFailure g = CaughtFailure::from([&] { secure.getSession("no-such-host.invalid", 443, "/", nullptr, 1); });
    EXPECT_EQ(33, g.code());
    EXPECT_EQ(2u, g.trace().size()) << g.describeTrace();
}

TEST(FactorySession, NoHostOrNoUrlIsAnArgumentError) {
    TALVEX toolkit;
    const struct {
        std::function<void()> call;
        const char* function;
    } rows[] = {{[&] { toolkit.getSession(nullptr, 443, "/", nullptr, 1); }, "TALVEX::getSession - no host was given"},
                {[&] { toolkit.getSession(nullptr, nullptr, 1); }, "TALVEX::getSession - no URL was given"}};
    for (const auto& r : rows) {
        CaughtFailure f = CaughtFailure::from(r.call);
        EXPECT_EQ("MOXIllegalArgumentError", f.name());
        EXPECT_EQ(r.function, f.origin().function);
    }
}

TEST(FactorySession, PlainUrlWithoutSchemeSeparatorFailsInTheSocket) {
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    const int before = openDescriptors();
    for (const std::string url : {"127.0.0.1:80/svc", "http://"}) {
        SCOPED_TRACE(url);
        CaughtFailure f = CaughtFailure::from([&] { toolkit.getSession(url.c_str(), nullptr, 1); });
        EXPECT_EQ("TALVEXException", f.name());
        EXPECT_EQ(30, f.code());
        ASSERT_EQ(1u, f.messages().size());
        EXPECT_EQ(0xF2A26477u, f.messages()[0].number);
        ASSERT_EQ(2u, f.messages()[0].parameters.size());
        EXPECT_EQ(url, f.messages()[0].parameters[0]);
        EXPECT_EQ("no ://", f.messages()[0].parameters[1]);
        ASSERT_EQ(2u, f.trace().size()) << f.describeTrace();
        EXPECT_EQ("TALVEXSocketNonSSL", f.trace()[0].unit);
        EXPECT_EQ("TALVEXSocketNonSSL::prepare( url )", f.trace()[0].function);
        EXPECT_EQ("MOX_THROW", f.trace()[0].kind);
        EXPECT_EQ("TALVEX", f.trace()[1].unit);
        EXPECT_EQ(142, f.trace()[1].line);
        EXPECT_EQ("TALVEX::getSession", f.trace()[1].function);
        EXPECT_EQ("MOX_RETHROW", f.trace()[1].kind);
    }
    EXPECT_TRUE(descriptorsBackTo(before));
}

TEST(FactorySession, UrlTheSocketTakesButXmlUrlRejectsCostsOneConnection) {
    SoapEchoEndpoint endpoint;
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    const std::string port = std::to_string(endpoint.port());
    // The socket reads the port with atoi and ignores the path; XmlUrl wants
    // a port of digits only and a path in UTF-8.
    const std::string urls[] = {"http://127.0.0.1:" + port + "x/svc", "http://127.0.0.1:" + port + "/caf\xe9"};
    int connections = 0;
    for (const std::string& url : urls) {
        SCOPED_TRACE(url);
        const int before = openDescriptors();
        CaughtFailure f = CaughtFailure::from([&] { toolkit.getSession(url.c_str(), nullptr, 5); });
        ++connections;
        EXPECT_EQ("TALVEXException", f.name());
        EXPECT_EQ(30, f.code());
        ASSERT_EQ(1u, f.messages().size());
        EXPECT_EQ(0xF2A26477u, f.messages()[0].number);
        ASSERT_EQ(2u, f.messages()[0].parameters.size());
        EXPECT_EQ(url, f.messages()[0].parameters[0]);
        EXPECT_EQ("XMLException", f.messages()[0].parameters[1]);
        ASSERT_EQ(1u, f.trace().size()) << f.describeTrace();
        EXPECT_EQ("TALVEX", f.origin().unit);
        EXPECT_EQ(172, f.origin().line);
        EXPECT_EQ("TALVEX::getSession", f.origin().function);
        EXPECT_EQ("MOX_THROW", f.origin().kind);

        EXPECT_TRUE(endpoint.waitForConnectionsEnded(connections)) << "the connection was closed again";
        EXPECT_EQ(connections, endpoint.accepted());
        EXPECT_EQ(0u, endpoint.requestCount());
        EXPECT_TRUE(descriptorsBackTo(before));
    }
}

TEST(FactorySession, RefusedConnectLeavesNothingBehind) {
    RefusingPort closed;
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    const int before = openDescriptors();

    auto start = std::chrono::steady_clock::now();
    CaughtFailure byHost =
        CaughtFailure::from([&] { toolkit.getSession("127.0.0.1", closed.port(), "/", nullptr, 1); });
    EXPECT_LT(elapsedMs(start), 6000) << "the time limit ends the retries";
    EXPECT_EQ("TALVEXException", byHost.name());
    EXPECT_EQ(5, byHost.code());
    EXPECT_EQ("TALVEXSocketNonSSL::Open(3)", byHost.origin().function) << byHost.describeTrace();
    EXPECT_EQ(1, byHost.entriesOf("TALVEX::getSession")) << byHost.describeTrace();
    EXPECT_EQ(117, byHost.trace().back().line);
    EXPECT_EQ("MOX_RETHROW", byHost.trace().back().kind);
    EXPECT_TRUE(descriptorsBackTo(before)) << "the failed socket's handle was released";

    const std::string url = "http://127.0.0.1:" + std::to_string(closed.port()) + "/svc";
    CaughtFailure byUrl = CaughtFailure::from([&] { toolkit.getSession(url.c_str(), nullptr, 1); });
    EXPECT_EQ(5, byUrl.code());
    EXPECT_EQ("TALVEXSocketNonSSL::Open(3)", byUrl.origin().function) << byUrl.describeTrace();
    EXPECT_EQ(1, byUrl.entriesOf("TALVEX::getSession")) << byUrl.describeTrace();
    EXPECT_EQ(142, byUrl.trace().back().line);
    EXPECT_TRUE(descriptorsBackTo(before));
}

TEST(FactorySession, SecureUrlWithDefaultSettingsAgainstAClosedPortFailsCleanly) {
    RefusingPort closed;
    TALVEX toolkit;
    const int before = openDescriptors();
    const std::string url = "https://127.0.0.1:" + std::to_string(closed.port()) + "/svc";
    auto start = std::chrono::steady_clock::now();
    CaughtFailure f = CaughtFailure::from([&] { toolkit.getSession(url.c_str(), nullptr, 1); });
    EXPECT_LT(elapsedMs(start), 6000);
    EXPECT_EQ("TALVEXException", f.name()) << f.describeTrace();
    EXPECT_EQ(1, f.entriesOf("TALVEX::getSession")) << f.describeTrace();
    ASSERT_FALSE(f.trace().empty());
    EXPECT_EQ(142, f.trace().back().line);
    EXPECT_EQ("MOX_RETHROW", f.trace().back().kind);
    EXPECT_TRUE(descriptorsBackTo(before));
}
