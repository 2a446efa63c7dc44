#include <gtest/gtest.h>

#include <string>

#include "WireCapture.h"
#include "http/TALVEXMessageWriterImp.h"
#include "moxcore/MOXErrors.h"
#include "moxidom/MOXIDOM_Document.h"
#include "moxidom/MOXIDOM_Element.h"

namespace {
MOXIDOM_Element smallEnvelope(MOXIDOM_Document& doc) {
    MOXIDOM_Element env = doc.createElementNS("http://schemas.xmlsoap.org/soap/envelope/", "soap:Envelope");
    env.appendElementNS("http://schemas.xmlsoap.org/soap/envelope/", "soap:Body").appendText("hi & bye");
    return env;
}

std::string headOf(const std::string& wire) { return wire.substr(0, wire.find("\r\n\r\n") + 4); }

std::string functionOf(const std::function<void()>& call) {
    try {
        call();
    } catch (MOXThrowable& e) {
        return e.getBackTrace().at(0).function;
    }
    return "<nothing thrown>";
}

std::string assertionOf(const std::function<void()>& call) {
    try {
        call();
    } catch (MOXAssertError& e) {
        return e.getText();
    }
    return "<no assertion>";
}
}  // namespace

TEST(MessageWriter, OnePieceChunkedRequestByteForByte) {
    MOXIDOM_Document doc;
    MOXIDOM_Element env = smallEnvelope(doc);
    int port = 0;
    std::string wire = captureWire([&](TALVEXSocketNonSSL& s) {
        port = s.getPort();
        TALVEXMessageWriterImp w("/soap/svc", 1, 0, &s, 1, 0, nullptr);
        w.setHeader("X-b", "2");
        w.setHeader("X-A", "1");
        w.setHeader("a-lower", "3");
        w.writeEnvelope(env);
        w.close();
    });
    std::string xml =
        "<soap:Envelope xmlns:soap=\"http://schemas.xmlsoap.org/soap/envelope/\"><soap:Body>hi &amp; bye</soap:Body>"
        "</soap:Envelope>";
    char size[16];
    std::snprintf(size, sizeof size, "%zx", xml.size());
    std::string expected = "POST /soap/svc HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(port) +
                           "\r\nSOAPAction: \"\"\r\nContent-Type: text/xml; charset=UTF-8\r\nContent-ID: envelope\r\n"
                           "X-A: 1\r\nX-b: 2\r\na-lower: 3\r\nTransfer-Encoding: chunked\r\n\r\n" +
                           size + "\r\n" + xml + "\r\n0\r\n\r\n";
    EXPECT_EQ(expected, wire);
    ParsedMessage m = parseWithPython(wire);
    EXPECT_EQ("", m.error);
    EXPECT_EQ(xml, m.body);
}

TEST(MessageWriter, ContentLengthRequestIsParsedBackTheSame) {
    std::string wire = captureWire([&](TALVEXSocketNonSSL& s) {
        TALVEXMessageWriterImp w("/x", 1, 0, &s, 0, 77, nullptr);
        EXPECT_EQ(0, w.getChunkSize()) << "no chunking: the chunk size is not used";
        PNXOutputStream& out = w.openEnvelope("\"urn:act\"");
        out.write("<a>", 3);
        out.write("</a>", 4);
        w.closeEnvelope(out);
        w.close();
    });
    ParsedMessage m = parseWithPython(wire);
    ASSERT_EQ("", m.error) << wire;
    EXPECT_EQ("POST /x HTTP/1.1", m.start);
    EXPECT_EQ("<a></a>", m.body);
    EXPECT_NE(std::string::npos, wire.find("SOAPAction: \"urn:act\"\r\n"));
    EXPECT_NE(std::string::npos, wire.find("Content-Length: 7\r\n"));
}

TEST(MessageWriter, ChunkSizeRules) {
    TALVEXSocketNonSSL s(0);
    EXPECT_EQ(4000, TALVEXMessageWriterImp("/", 1, 0, &s, 1, 0, nullptr).getChunkSize());
    EXPECT_EQ(4000, TALVEXMessageWriterImp("/", 1, 0, &s, 1, 1, nullptr).getChunkSize());
    EXPECT_EQ(4000, TALVEXMessageWriterImp("/", 1, 0, &s, 1, -5, nullptr).getChunkSize());
    EXPECT_EQ(2, TALVEXMessageWriterImp("/", 1, 0, &s, 1, 2, nullptr).getChunkSize());
    EXPECT_EQ(0, TALVEXMessageWriterImp("/", 1, 0, &s, 0, 2, nullptr).getChunkSize());
}

// The envelope's type and action: the caller's Content-Type and SOAPAction
// replace the writer's own; SOAP 1.2 (an envelope in its namespace, or an
// application/soap+xml type) carries the action as a parameter, without a
// SOAPAction header. For a multipart message the type is the root part's.
TEST(MessageWriter, EnvelopeTypeAndActionFromTheEnvelopeAndTheCallersHeaders) {
    const char* const kNone = "<none>";
    struct Row {
        const char* what;
        int isRequest;
        int multipart;
        const char* envelopeNs;  // null: streamed with openEnvelope(action)
        const char* action;
        std::map<std::string, std::string> headers;
        const char* contentType;  // of the head, or of the root part
        const char* soapAction;   // kNone: no SOAPAction line
        const char* rootType;     // multipart head's type and start-info parameters
    } rows[] = {
        {"1.1 from a node", 1, 0, "http://schemas.xmlsoap.org/soap/envelope/", nullptr, {},
         "text/xml; charset=UTF-8", "\"\"", nullptr},
        {"1.2 from a node", 1, 0, "http://www.w3.org/2003/05/soap-envelope", nullptr, {},
         "application/soap+xml; charset=UTF-8", kNone, nullptr},
        {"1.2 node, the caller's action", 1, 0, "http://www.w3.org/2003/05/soap-envelope", nullptr,
         {{"soapaction", "\"urn:op\""}}, "application/soap+xml; charset=UTF-8; action=\"urn:op\"", kNone, nullptr},
        {"caller's type replaces", 1, 0, nullptr, "\"urn:a\"", {{"Content-Type", "text/xml; charset=ISO-8859-1"}},
         "text/xml; charset=ISO-8859-1", "\"urn:a\"", nullptr},
        {"caller's action replaces", 1, 0, nullptr, "\"urn:a\"", {{"SOAPAction", "\"urn:h\""}},
         "text/xml; charset=UTF-8", "\"urn:h\"", nullptr},
        {"1.2 said by the type", 1, 0, nullptr, "\"urn:s\"", {{"CONTENT-TYPE", "application/soap+xml"}},
         "application/soap+xml; action=\"urn:s\"", kNone, nullptr},
        {"1.2 type with its own action", 1, 0, nullptr, "\"urn:s\"",
         {{"Content-Type", "application/soap+xml; action=\"urn:given\""}},
         "application/soap+xml; action=\"urn:given\"", kNone, nullptr},
        {"1.2 response", 0, 0, "http://www.w3.org/2003/05/soap-envelope", nullptr, {{"SOAPAction", "urn:x"}},
         "application/soap+xml; charset=UTF-8", kNone, nullptr},
        {"multipart 1.1", 1, 1, "http://schemas.xmlsoap.org/soap/envelope/", nullptr, {},
         "text/xml; charset=UTF-8", "\"\"", "type=\"text/xml\""},
        {"multipart 1.2", 1, 1, "http://www.w3.org/2003/05/soap-envelope", nullptr, {{"SOAPAction", "urn:m"}},
         "application/soap+xml; charset=UTF-8; action=\"urn:m\"", kNone, "type=\"application/soap+xml\""},
        {"multipart XOP root", 1, 1, nullptr, "\"\"",
         {{"Content-Type", "application/xop+xml; charset=UTF-8; type=\"application/soap+xml\""}},
         "application/xop+xml; charset=UTF-8; type=\"application/soap+xml\"", kNone,
         "type=\"application/xop+xml\"; start-info=\"application/soap+xml\""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        std::string wire = captureWire([&](TALVEXSocketNonSSL& s) {
            TALVEXMessageWriterImp w("/", row.isRequest, row.multipart, &s, 0, 0, nullptr);
            w.setHeaders(row.headers);
            if (row.envelopeNs != nullptr) {
                MOXIDOM_Document doc;
                MOXIDOM_Element env = doc.createElementNS(row.envelopeNs, "e:Envelope");
                w.writeEnvelope(env);
            } else {
                PNXOutputStream& out = w.openEnvelope(row.action);
                out.write("<e/>", 4);
                w.closeEnvelope(out);
            }
            w.close();
        });
        ParsedMessage m = parseWithPython(wire);
        ASSERT_EQ("", m.error) << wire;
        std::vector<std::pair<std::string, std::string>> typed = m.headers;
        if (row.multipart) {
            ASSERT_EQ(1u, m.parts.size());
            typed = m.parts[0].headers;
        }
        std::vector<std::string> types, actions;
        for (const auto& h : typed)
            if (h.first == "Content-Type") types.push_back(h.second);
        for (const auto& h : m.headers)
            if (h.first == "SOAPAction" || h.first == "soapaction") actions.push_back(h.second);
        EXPECT_EQ(std::vector<std::string>{row.contentType}, types) << wire;
        EXPECT_EQ(row.soapAction == kNone ? std::vector<std::string>{} : std::vector<std::string>{row.soapAction},
                  actions) << wire;
        if (row.rootType != nullptr) {
            const std::string type = std::string("multipart/related; ") + row.rootType + "; boundary=";
            EXPECT_NE(std::string::npos, headOf(wire).find(type)) << wire;
        }
    }
}

TEST(MessageWriter, ExtraHeadersTakeEffectOnlyWhenTheEnvelopeOpens) {
    std::string wire = captureWire([&](TALVEXSocketNonSSL& s) {
        TALVEXMessageWriterImp w("/", 1, 0, &s, 0, 0, nullptr);
        std::map<std::string, std::string> headers{{"Keep", "k"}, {"Gone", "g"}};
        w.setHeaders(headers);
        w.removeHeader("Gone");
        w.removeHeader("never-set");
        PNXOutputStream& out = w.openEnvelope();
        w.setHeader("Late", "l");
        out.write("<e/>", 4);
        w.closeEnvelope(out);
        w.close();
    });
    std::string head = headOf(wire);
    EXPECT_NE(std::string::npos, head.find("Content-ID: envelope\r\nKeep: k\r\n"));
    EXPECT_EQ(std::string::npos, head.find("Gone"));
    EXPECT_EQ(std::string::npos, head.find("Late"));
}

TEST(MessageWriter, CallerHostHeaderReplacesTheConnectionsOwn) {
    std::string wire = captureWire([&](TALVEXSocketNonSSL& s) {
        TALVEXMessageWriterImp w("/", 1, 0, &s, 1, 0, nullptr);
        w.setHeader("Host", "service.example:8443");
        PNXOutputStream& out = w.openEnvelope();
        out.write("<e/>", 4);
        w.closeEnvelope(out);
        w.close();
    });
    std::string head = headOf(wire);
    EXPECT_NE(std::string::npos, head.find("\r\nHost: service.example:8443\r\n"));
    EXPECT_EQ(head.find("Host:"), head.rfind("Host:")) << "exactly one Host header";
}

TEST(MessageWriter, ResponseStatusLine) {
    std::string wire = captureWire([&](TALVEXSocketNonSSL& s) {
        TALVEXMessageWriterImp w("/", 0, 0, &s, 0, 0, nullptr);
        w.setResponseStatus(500, nullptr);
        PNXOutputStream& out = w.openEnvelope();
        EXPECT_EQ("TALVEXMessageWriterImp::setResponseStatus - the status line was already sent",
                  functionOf([&] { w.setResponseStatus(200, "OK"); }));
        out.write("<f/>", 4);
        w.closeEnvelope(out);
        w.close();
    });
    EXPECT_EQ(0u, wire.find("HTTP/1.1 500 unknown reason\r\nContent-Type: text/xml; charset=UTF-8\r\n"));
    EXPECT_EQ(std::string::npos, wire.find("Host:")) << "responses name no host";
    EXPECT_EQ(std::string::npos, wire.find("SOAPAction"));

    std::string longReason(40, 'r');
    wire = captureWire([&](TALVEXSocketNonSSL& s) {
        TALVEXMessageWriterImp w("/", 0, 0, &s, 0, 0, nullptr);
        w.setResponseStatus(404, longReason.c_str());
        PNXOutputStream& out = w.openEnvelope();
        w.closeEnvelope(out);
        w.close();
    });
    EXPECT_EQ(0u, wire.find("HTTP/1.1 404 " + std::string(31, 'r') + "\r\n")) << wire;

    wire = captureWire([&](TALVEXSocketNonSSL& s) {
        TALVEXMessageWriterImp w("/", 0, 0, &s, 1, 0, nullptr);
        PNXOutputStream& out = w.openEnvelope();
        w.closeEnvelope(out);
        w.close();
    });
    EXPECT_EQ(0u, wire.find("HTTP/1.1 200 OK\r\n")) << "a response defaults to 200 OK";
}

TEST(MessageWriter, MisuseIsRefusedWithItsText) {
    TALVEXSocketNonSSL s(0);
    TALVEXMessageWriterImp request("/", 1, 0, &s, 1, 0, nullptr);
    EXPECT_EQ("TALVEXMessageWriterImp::setResponseStatus - you can't set response status for a request",
              functionOf([&] { request.setResponseStatus(200, "OK"); }));
    EXPECT_EQ("MOX_ASSERT(m_sock);", assertionOf([] { TALVEXMessageWriterImp("/", 1, 0, nullptr, 1, 0, nullptr); }));
    EXPECT_EQ("MOX_ASSERT(_uri_path);", assertionOf([&] { TALVEXMessageWriterImp(nullptr, 1, 0, &s, 1, 0, nullptr); }));

    // Writes after closeEnvelope, and a second close, fail.
    captureWire([&](TALVEXSocketNonSSL& sock) {
        TALVEXMessageWriterImp w("/", 1, 0, &sock, 1, 0, nullptr);
        PNXOutputStream& out = w.openEnvelope();
        out.write("<e/>", 4);
        w.closeEnvelope(out);
        EXPECT_THROW(out.write("x", 1), MOXIllegalStateError);
        w.close();
        EXPECT_EQ("MOX_ASSERT(m_op_sender);", assertionOf([&] { w.close(); }));
        EXPECT_EQ("MOX_ASSERT(m_op_sender);", assertionOf([&] { w.openEnvelope(); }));
    });
}

TEST(MessageWriter, DestroyingAnUnclosedWriterFinishesTheMessage) {
    std::string wire = captureWire([&](TALVEXSocketNonSSL& s) {
        TALVEXMessageWriterImp w("/", 1, 0, &s, 1, 0, nullptr);
        PNXOutputStream& out = w.openEnvelope();
        out.write("<e/>", 4);
        w.closeEnvelope(out);
    });
    ParsedMessage m = parseWithPython(wire);
    EXPECT_EQ("", m.error);
    EXPECT_EQ("<e/>", m.body);
}
