#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>

#include "CaughtFailure.h"
#include "SessionFixture.h"
#include "talvex/TALVEXException.h"

// One connection serves every cycle of a session; reconnect opens it again.

using SessionConnection = SessionFixture;

TEST_F(SessionConnection, ThousandRequestsGoOverOneConnection) {
    MOXIDOM_Document request;
    MOXIDOM_Element env = envelope(request, "");
    MOXIDOM_Node text = env.getFirstChildElement().getFirstChildElement().getFirstChild();
    for (int i = 0; i < 1000; ++i) {
        const std::string expected = "request " + std::to_string(i);
        text.setTextContent(expected);
        MOXIDOM_Document response;
        session->doRequest(env, response);
        ASSERT_EQ(expected, responseText(response)) << "cycle " << i;
    }
    EXPECT_EQ(1000u, endpoint.requestCount());
    EXPECT_EQ(1, endpoint.accepted());
    EXPECT_EQ(0, endpoint.connectionsEnded());
}

TEST_F(SessionConnection, DroppedConnectionFailsInTheSocketThenReconnectWorks) {
    SoapEchoEndpoint::Options dropping;
    dropping.closeAfterResponse = true;
    dropping.resetOnClose = true;
    endpoint.setOptions(dropping);
    EXPECT_EQ("first", roundTrip("first"));
    ASSERT_TRUE(endpoint.waitForConnectionsEnded(1));
    // Let the reset arrive before the next request is written.
    std::this_thread::sleep_for(std::chrono::milliseconds(100));

    endpoint.setOptions(SoapEchoEndpoint::Options());
    CaughtFailure f = CaughtFailure::from([&] { roundTrip("lost"); });
    ASSERT_TRUE(f.thrown());
    EXPECT_EQ("TALVEXException", f.name()) << f.describeTrace();
    EXPECT_EQ(TALVEXException::ErrSocket, f.code());
    EXPECT_EQ("TALVEXSocketNonSSL", f.origin().unit) << f.describeTrace();
    EXPECT_EQ("TALVEXSocketNonSSL::WriteBuffer", f.origin().function);
    ASSERT_FALSE(f.messages().empty());
    EXPECT_EQ(0xF2A16A58u, f.messages()[0].number);

    session->reconnect(10);
    EXPECT_EQ("second", roundTrip("second"));
    EXPECT_EQ(2, endpoint.accepted());
    EXPECT_EQ("third", roundTrip("third"));
    EXPECT_EQ(2, endpoint.accepted());
}

TEST_F(SessionConnection, PeerThatClosesAfterEachResponseNeedsAReconnectEachTime) {
    SoapEchoEndpoint::Options closing;
    closing.closeAfterResponse = true;
    endpoint.setOptions(closing);
    for (int i = 0; i < 5; ++i) {
        if (i > 0) session->reconnect(10);
        EXPECT_EQ("call " + std::to_string(i), roundTrip("call " + std::to_string(i)));
    }
    EXPECT_EQ(5, endpoint.accepted());
}

// Reconnect closes the old connection, opens a fresh one to the same
// endpoint, and drops an open writer or reader.
TEST_F(SessionConnection, ReconnectGivesAFreshConnectionAndDropsAnOpenCycle) {
    EXPECT_EQ("one", roundTrip("one"));
    session->reconnect(10);
    EXPECT_TRUE(endpoint.waitForConnectionsEnded(1)) << "the old connection was closed";
    EXPECT_EQ("two", roundTrip("two"));
    EXPECT_EQ(2, endpoint.accepted());
    EXPECT_EQ("/svc", endpoint.lastRequest().uri);

    session->openRequest(0);
    session->reconnect(10);
    EXPECT_EQ("fresh", roundTrip("fresh"));
    MOXIDOM_Document request;
    MOXIDOM_Element env = envelope(request, "unread");
    session->sendRequest(env);
    session->openResponse();
    session->reconnect(10);
    EXPECT_EQ("fresh again", roundTrip("fresh again"));
    EXPECT_EQ(4, endpoint.accepted());
}

// The default Host names the address and port; one set by the caller replaces it.
TEST_F(SessionConnection, HostHeader) {
    roundTrip("host");
    const std::string authority = "127.0.0.1:" + std::to_string(endpoint.port());
    EXPECT_EQ(authority, endpoint.lastRequest().header("host"));
    EXPECT_EQ(0u, endpoint.lastRequest().head().find("POST /svc HTTP/1.1\r\nHost: " + authority +
                                                     "\r\nSOAPAction: \"\"\r\n"))
        << endpoint.lastRequest().head();

    session->setHeader("Host", "service.example:8443");
    roundTrip("named host");
    SoapEchoEndpoint::SeenRequest seen = endpoint.lastRequest();
    EXPECT_EQ("service.example:8443", seen.header("host"));
    const std::string head = seen.head();
    size_t count = 0;
    for (size_t at = head.find("\r\nHost:"); at != std::string::npos; at = head.find("\r\nHost:", at + 1)) ++count;
    EXPECT_EQ(1u, count) << head;
    EXPECT_NE(std::string::npos, head.find("Content-ID: envelope\r\nHost: service.example:8443\r\n")) << head;

    session->removeHeader("Host");
    roundTrip("default again");
    EXPECT_EQ(authority, endpoint.lastRequest().header("host"));
}

TEST(SessionByUrl, HostHeaderNamesTheUrlsAuthority) {
    SoapEchoEndpoint endpoint;
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    std::unique_ptr<TALVEXSession> session(toolkit.getSession(endpoint.url("/by/url?x=1").c_str(), nullptr, 5));
    MOXIDOM_Document request;
    MOXIDOM_Element env = SessionFixture::envelope(request, "by url");
    MOXIDOM_Document response;
    session->doRequest(env, response);
    EXPECT_EQ("by url", SessionFixture::responseText(response));
    EXPECT_EQ("127.0.0.1:" + std::to_string(endpoint.port()), endpoint.lastRequest().header("host"));
    EXPECT_EQ("/by/url?x=1", endpoint.lastRequest().uri);
}
