#include <gtest/gtest.h>
#include <strings.h>

#include <algorithm>
#include <memory>
#include <string>

#include "CaughtFailure.h"
#include "QuotedPrintable.h"
#include "ReadAll.h"
#include "SessionFixture.h"

// Streaming cycles: attachments written and read part by part, responses left
// half-read, interim responses and faults.

namespace {
const char kBoundary[] = "=_=vorna-mp-boundary=_=";

// Binary data that comes close to the multipart delimiter again and again
// without forming it, at offsets that straddle the reader's 1024-byte refills.
std::string nearMissBinary() {
    const std::string b = kBoundary;
    const std::string misses[] = {
        "\r\n--" + b.substr(0, b.size() - 1) + "X",  // the boundary less its last byte
        "\r\n--" + b.substr(0, 5) + "\r\n",          // a short prefix
        "\n--" + b + "\r\n",                         // LF alone before the dashes
        "\r--" + b + "\r\n",                         // CR alone before the dashes
        "\r\n-" + b + "\r\n",                        // one dash
        "\r\r\n--=" + std::string("\xff\x00", 2),    // CR CR LF and binary bytes
        "--" + b + "--\r\n",                         // a closing delimiter without its CR LF
    };
    std::string data;
    for (int i = 0; i < 256; ++i) data += static_cast<char>(i);
    unsigned seed = 12345;
    for (int round = 0; data.size() < 60000; ++round) {
        data += 'x';  // so the filler never completes a miss into a real delimiter
        data += misses[round % 7];
        seed = seed * 1103515245u + 12345u;
        const size_t filler = 1 + (seed >> 16) % 1100;
        for (size_t i = 0; i < filler; ++i) data += static_cast<char>((seed >> (i % 24)) + i);
    }
    data += "\r\n--" + b.substr(0, b.size() - 1);  // ends on a near miss too
    return data;
}

std::string quotedPrintableOriginal() {
    std::string text = "Grüße aus Köln = 3D, a=b and tabs\tand trailing blanks   \r\n";
    text += std::string(200, 'L') + "\r\n";  // longer than an encoded line
    text += "bare LF\nand bare CR\rend\r\n";
    text += "\xe2\x9c\x93 check mark, <xml> & \"quotes\"\r\n";
    text += "last line without its end";
    return text;
}

void writeInPieces(PNXOutputStream& out, const std::string& data) {
    const size_t sizes[] = {1, 7, 1000, 4096, 3, 20000};
    size_t at = 0;
    for (int i = 0; at < data.size(); ++i) {
        const size_t n = std::min(sizes[i % 6], data.size() - at);
        out.write(data.data() + at, static_cast<unsigned>(n));
        at += n;
    }
}
}  // namespace

class SessionStreaming : public SessionFixture {
protected:
    // Sends the envelope and the two attachments in one multipart request.
    void sendTwoAttachments(const std::string& text, const std::string& binary, const std::string& original) {
        TALVEXMessageWriter& w = session->openRequest(1);
        const std::string xml = envelopeText(text);
        PNXOutputStream& env = w.openEnvelope();
        env.write(xml.data(), static_cast<unsigned>(xml.size()));
        w.closeEnvelope(env);
        std::unique_ptr<std::string> id1(w.newContentId());
        PNXOutputStream& part = w.openAttachment("application/octet-stream", nullptr, id1->c_str(), 0);
        writeInPieces(part, binary);
        w.closeAttachment(part);
        std::unique_ptr<std::string> id2(w.newContentId());
        const std::string encoded = encodeQuotedPrintable(original);
        w.writeAttachment("text/vornatk-pre-encoded-quoted-printable", "UTF-8", encoded.data(),
                          static_cast<unsigned>(encoded.size()), id2->c_str());
        session->closeRequest(w);
    }

    void expectTwoAttachmentsEchoed(const std::string& binary, const std::string& original) {
        TALVEXMessageReader& r = session->openResponse();
        MOXIDOM_Document response;
        r.getEnvelope(response);
        EXPECT_EQ("two parts", responseText(response));
        EXPECT_EQ(1, r.isMultipart());
        ASSERT_EQ(1, r.hasMoreAttachments());

        TALVEXAttachmentReader& a = r.openNextAttachment();
        EXPECT_STREQ("1", a.getContentId());
        EXPECT_STREQ("application/octet-stream", a.getContentType());
        const std::string gotBinary = readAll(a.getInputStream());
        EXPECT_EQ(binary.size(), gotBinary.size());
        EXPECT_TRUE(binary == gotBinary) << "binary part differs";
        r.closeAttachment(a);
        ASSERT_EQ(1, r.hasMoreAttachments());

        TALVEXAttachmentReader& b = r.openNextAttachment();
        EXPECT_STREQ("2", b.getContentId());
        const char* encoding = b.getHeader("content-transfer-encoding");
        ASSERT_NE(nullptr, encoding);
        EXPECT_EQ(0, strcasecmp("quoted-printable", encoding));
        EXPECT_EQ(original, readAll(b.getInputStream()));
        r.closeAttachment(b);
        EXPECT_EQ(0, r.hasMoreAttachments());
        session->closeResponse(r);
    }
};

// Chunked, then with lengths and another boundary; both on the one connection.
// The near misses are of the boundary both sides use first.
TEST_F(SessionStreaming, TwoAttachmentsComeBackByteForByte) {
    const std::string binary = nearMissBinary();
    const std::string original = quotedPrintableOriginal();
    SoapEchoEndpoint::Options nearMisses;
    nearMisses.boundary = kBoundary;
    endpoint.setOptions(nearMisses);
    session->setProperty("boundary", kBoundary);
    sendTwoAttachments("two parts", binary, original);
    expectTwoAttachmentsEchoed(binary, original);

    SoapEchoEndpoint::SeenRequest seen = endpoint.lastRequest();
    EXPECT_EQ("", seen.error);
    ASSERT_EQ(2u, seen.parts.size());
    EXPECT_TRUE(binary == seen.parts[0].data) << "the server read the binary part whole";
    EXPECT_EQ(0, strcasecmp("binary", seen.parts[0].transferEncoding.c_str()));
    EXPECT_EQ(original, seen.parts[1].data) << "the server decoded the quoted-printable part";
    EXPECT_EQ("Quoted-Printable", seen.parts[1].transferEncoding);

    SoapEchoEndpoint::Options lengths = nearMisses;
    lengths.chunkedResponse = false;
    endpoint.setOptions(lengths);
    session->setProperty("send-content-length", 1);
    session->setProperty("boundary", "own-boundary");
    sendTwoAttachments("two parts", binary, original);
    expectTwoAttachmentsEchoed(binary, original);
    EXPECT_TRUE(endpoint.lastRequest().has("content-length"));
    EXPECT_NE(std::string::npos, endpoint.lastRequest().header("content-type").find("own-boundary"));
    EXPECT_EQ("same connection", roundTrip("same connection"));
    EXPECT_EQ(1, endpoint.accepted());
}

// closeResponse reads and drops the rest of a half-read attachment or envelope.
TEST_F(SessionStreaming, HalfReadResponseClosedWithCloseResponse) {
    sendTwoAttachments("two parts", nearMissBinary(), quotedPrintableOriginal());
    TALVEXMessageReader& r = session->openResponse();
    MOXIDOM_Document response;
    r.getEnvelope(response);
    TALVEXAttachmentReader& a = r.openNextAttachment();
    char buf[100];
    ASSERT_NE(PNX_EOF, a.getInputStream().read(buf, sizeof buf));
    session->closeResponse(r);
    EXPECT_EQ("next cycle", roundTrip("next cycle"));

    MOXIDOM_Document request;
    MOXIDOM_Element env = envelope(request, std::string(20000, 'z'));
    session->sendRequest(env);
    TALVEXMessageReader& q = session->openResponse();
    ASSERT_NE(PNX_EOF, q.openEnvelope().read(buf, 10));
    session->closeResponse(q);
    EXPECT_EQ("next cycle", roundTrip("next cycle"));
    EXPECT_EQ(1, endpoint.accepted());
}

TEST_F(SessionStreaming, InterimContinueIsPassedOver) {
    SoapEchoEndpoint::Options withContinue;
    withContinue.sendContinue = true;
    endpoint.setOptions(withContinue);
    EXPECT_EQ("continued", roundTrip("continued"));

    MOXIDOM_Document request;
    MOXIDOM_Element env = envelope(request, "streamed");
    session->sendRequest(env);
    TALVEXMessageReader& r = session->openResponse();
    MOXIDOM_Document response;
    r.getEnvelope(response);
    EXPECT_EQ("streamed", responseText(response));
    ASSERT_NE(nullptr, r.getHeader("talvex-status-code"));
    EXPECT_STREQ("200", r.getHeader("talvex-status-code"));
    session->closeResponse(r);
    EXPECT_EQ(1, endpoint.accepted());
}

TEST_F(SessionStreaming, FaultWithStatus500IsReadAsAnEnvelope) {
    SoapEchoEndpoint::Options fault;
    fault.fault = true;
    fault.faultCode = "soapenv:Client";
    fault.faultString = "bad <input> & more";
    endpoint.setOptions(fault);

    TALVEXMessageWriter& w = session->openRequest(0);
    MOXIDOM_Document request;
    w.writeEnvelope(envelope(request, "make it fail"));
    session->closeRequest(w);
    TALVEXMessageReader& r = session->openResponse();
    MOXIDOM_Document response;
    r.getEnvelope(response);
    ASSERT_NE(nullptr, r.getHeader("talvex-status-code"));
    EXPECT_STREQ("500", r.getHeader("talvex-status-code"));
    EXPECT_STREQ("Internal Server Error", r.getHeader("talvex-reason-phrase"));
    session->closeResponse(r);

    MOXIDOM_Element envelopeElement = response.getDocumentElement();
    EXPECT_EQ("Envelope", envelopeElement.getLocalName());
    MOXIDOM_Element faultElement = envelopeElement.getFirstChildElement().getFirstChildElement();
    EXPECT_EQ("Fault", faultElement.getLocalName());
    EXPECT_EQ(kSoapNs, faultElement.getNamespaceURI());
    EXPECT_EQ("soapenv:Client", faultElement.getFirstChildElement("", "faultcode").getTextContent());
    EXPECT_EQ("bad <input> & more", faultElement.getFirstChildElement("", "faultstring").getTextContent());

    // doRequest does not judge the status either: the fault is the response.
    fault.chunkedResponse = false;
    endpoint.setOptions(fault);
    MOXIDOM_Document again;
    MOXIDOM_Document second;
    MOXIDOM_Element env = envelope(second, "again");
    session->doRequest(env, again);
    EXPECT_EQ("soapenv:Clientbad <input> & more", responseText(again));
    EXPECT_EQ(1, endpoint.accepted());
}
