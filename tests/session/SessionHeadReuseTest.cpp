#include <gtest/gtest.h>

#include <string>

#include "SessionFixture.h"

// A session sends the head of its last plain request again, without composing
// it, while the request is made from the same pieces. These tests check that
// the bytes on the wire are those of a head composed afresh.

namespace {

class SessionHeadReuse : public SessionFixture {
protected:
    // One streaming cycle; each action opens the envelope once more before
    // the envelope is written. The head of the request as it was received.
    std::string cycle(const char* const* actions, int count, const std::string& text) {
        TALVEXMessageWriter& w = session->openRequest(0);
        PNXOutputStream* out = nullptr;
        for (int i = 0; i < count; ++i) out = actions[i] != nullptr ? &w.openEnvelope(actions[i]) : &w.openEnvelope();
        const std::string body = envelopeText(text);
        out->write(body.data(), static_cast<unsigned>(body.size()));
        w.closeEnvelope(*out);
        session->closeRequest(w);
        MOXIDOM_Document response;
        session->getResponse(response);
        EXPECT_EQ(text, responseText(response));
        return endpoint.lastRequest().head();
    }
    std::string cycle(const char* action, const std::string& text) { return cycle(&action, 1, text); }
};

TEST_F(SessionHeadReuse, RepeatedRequestsSendTheSameHead) {
    const std::string first = cycle(nullptr, "one");
    EXPECT_EQ(0u, first.find("POST /svc HTTP/1.1\r\nHost: 127.0.0.1:")) << first;
    EXPECT_EQ(first, cycle(nullptr, "two"));
    EXPECT_EQ(first, cycle(nullptr, "three"));
    // doRequest goes the same way.
    roundTrip("four");
    EXPECT_EQ(first, endpoint.lastRequest().head());
}

TEST_F(SessionHeadReuse, AChangedActionOrHeaderIsSent) {
    const std::string plain = cycle("\"urn:a\"", "a");
    EXPECT_NE(std::string::npos, plain.find("\r\nSOAPAction: \"urn:a\"\r\n")) << plain;
    const std::string other = cycle("\"urn:b\"", "b");
    EXPECT_NE(std::string::npos, other.find("\r\nSOAPAction: \"urn:b\"\r\n")) << other;

    session->setHeader("X-Trace", "7");
    const std::string traced = cycle("\"urn:b\"", "c");
    EXPECT_NE(std::string::npos, traced.find("\r\nX-Trace: 7\r\n")) << traced;
    session->setHeader("X-Trace", "8");
    const std::string traced8 = cycle("\"urn:b\"", "d");
    EXPECT_NE(std::string::npos, traced8.find("\r\nX-Trace: 8\r\n")) << traced8;

    session->removeHeader("X-Trace");
    EXPECT_EQ(other, cycle("\"urn:b\"", "e"));
    EXPECT_EQ(plain, cycle("\"urn:a\"", "f"));

    // A request given up before its close leaves no head to be sent again.
    session->openRequest(0).openEnvelope("\"urn:c\"");
    session->reconnect(10);
    const std::string given = cycle("\"urn:c\"", "g");
    EXPECT_NE(std::string::npos, given.find("\r\nSOAPAction: \"urn:c\"\r\n")) << given;
}

// The envelope's SOAP version is one of the pieces: a SOAP 1.2 request after a
// SOAP 1.1 one with the same action and headers gets its own head.
TEST_F(SessionHeadReuse, AnotherSoapVersionIsSent) {
    roundTrip("one");
    const std::string soap11 = endpoint.lastRequest().head();
    MOXIDOM_Document request;
    MOXIDOM_Element env = request.createElementNS("http://www.w3.org/2003/05/soap-envelope", "env:Envelope");
    env.appendElementNS("http://www.w3.org/2003/05/soap-envelope", "env:Body").appendText("two");
    MOXIDOM_Document response;
    session->doRequest(env, response);
    const std::string soap12 = endpoint.lastRequest().head();
    EXPECT_NE(std::string::npos, soap12.find("\r\nContent-Type: application/soap+xml; charset=UTF-8\r\n")) << soap12;
    EXPECT_EQ(std::string::npos, soap12.find("SOAPAction")) << soap12;
    roundTrip("three");
    EXPECT_EQ(soap11, endpoint.lastRequest().head());
}

TEST_F(SessionHeadReuse, HeaderSetOnTheWriterIsSent) {
    const std::string plain = cycle(nullptr, "one");
    MOXIDOM_Document request;
    MOXIDOM_Element env = envelope(request, "two");
    TALVEXMessageWriter& w = session->openRequest(0);
    w.setHeader("X-Once", "yes");
    w.writeEnvelope(env);
    session->closeRequest(w);
    MOXIDOM_Document response;
    session->getResponse(response);
    EXPECT_NE(std::string::npos, endpoint.lastRequest().head().find("\r\nX-Once: yes\r\n"));
    EXPECT_EQ(plain, cycle(nullptr, "three"));
}

TEST_F(SessionHeadReuse, EnvelopeOpenedTwiceSendsBothOpeningsHeaders) {
    const char* const twice[] = {"\"urn:first\"", "\"urn:second\""};
    // On a fresh session: the head composed from scratch.
    const std::string composed = cycle(twice, 2, "one");
    EXPECT_NE(std::string::npos, composed.find("SOAPAction: \"urn:first\"")) << composed;
    EXPECT_NE(std::string::npos, composed.find("SOAPAction: \"urn:second\"")) << composed;

    // After a request whose head is kept for "urn:first": the same bytes.
    cycle("\"urn:first\"", "two");
    EXPECT_EQ(composed, cycle(twice, 2, "three"));
    // And the kept head still serves a plain request afterwards.
    const std::string single = cycle("\"urn:first\"", "four");
    EXPECT_EQ(std::string::npos, single.find("urn:second")) << single;
}

}  // namespace
