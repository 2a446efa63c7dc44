#ifndef TALVEX_TESTS_SESSIONFIXTURE_H
#define TALVEX_TESTS_SESSIONFIXTURE_H

// A plain session from the toolkit's factory, connected to a fresh echo
// endpoint, with helpers to build request envelopes and read the echoed text.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "SoapEchoEndpoint.h"
#include "http/TALVEXMessageWriterImp.h"
#include "moxidom/MOXIDOM_Document.h"
#include "moxidom/MOXIDOM_Element.h"
#include "moxidom/MOXIDOM_Helper.h"
#include "talvex/TALVEX.h"

class SessionFixture : public ::testing::Test {
public:
    static constexpr const char* kSoapNs = "http://schemas.xmlsoap.org/soap/envelope/";

    // <soapenv:Envelope><soapenv:Body><e:echo>text</e:echo></soapenv:Body></soapenv:Envelope>
    static MOXIDOM_Element envelope(MOXIDOM_Document& doc, const std::string& text) {
        MOXIDOM_Element env = doc.createElementNS(kSoapNs, "soapenv:Envelope");
        doc.appendChild(env);
        env.appendElementNS(kSoapNs, "soapenv:Body").appendElementNS("urn:talvex:echo", "e:echo").appendText(text);
        return env;
    }
    static std::string envelopeText(const std::string& text) {
        MOXIDOM_Document doc;
        return MOXIDOM_Helper::toString(envelope(doc, text));
    }
    // The text of the response envelope appended to `doc`.
    static std::string responseText(const MOXIDOM_Document& doc) { return doc.getDocumentElement().getTextContent(); }

protected:
    void SetUp() override {
        toolkit.setUseVLT(0);
        session.reset(toolkit.getSession("127.0.0.1", endpoint.port(), "/svc", nullptr, 5));
        ASSERT_NE(nullptr, session);
    }

    // One doRequest with an echo envelope; the echoed text.
    std::string roundTrip(const std::string& text) {
        MOXIDOM_Document request;
        MOXIDOM_Element env = envelope(request, text);
        MOXIDOM_Document response;
        session->doRequest(env, response);
        return responseText(response);
    }

    // One streaming cycle without attachments, checking the writer's framing
    // choice before anything is written; the echoed text.
    std::string cycleWithWriter(const std::string& text, int* chunkSize) {
        MOXIDOM_Document request;
        MOXIDOM_Element env = envelope(request, text);
        TALVEXMessageWriter& w = session->openRequest(0);
        auto* imp = dynamic_cast<TALVEXMessageWriterImp*>(&w);
        if (chunkSize != nullptr) *chunkSize = imp != nullptr ? imp->getChunkSize() : -1;
        w.writeEnvelope(env);
        session->closeRequest(w);
        MOXIDOM_Document response;
        session->getResponse(response);
        return responseText(response);
    }

    // The body of the last request as it went on the wire.
    std::string lastWireBody() {
        const std::string raw = endpoint.lastRequest().raw;
        const size_t end = raw.find("\r\n\r\n");
        return end == std::string::npos ? std::string() : raw.substr(end + 4);
    }

    // Declared first: the endpoint outlives the session.
    SoapEchoEndpoint endpoint;
    TALVEX toolkit;
    std::unique_ptr<TALVEXSession> session;
};

#endif
