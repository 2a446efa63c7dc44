#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "LoopbackServer.h"
#include "MemoryInputStream.h"
#include "ReadAll.h"
#include "mime/TALVEXMessageReaderImp.h"
#include "moxcore/MOXErrors.h"
#include "moxidom/MOXIDOM_Document.h"
#include "moxidom/MOXIDOM_Element.h"
#include "moxidom/MOXIDOM_Helper.h"
#include "moxcore/MOXMessage.h"
#include "talvex/TALVEXException.h"
#include "transport/TALVEXSocketNonSSL.h"

namespace {
const std::string kEnvelope =
    "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body><r>42</r></s:Body></s:Envelope>";

std::string chunk(const std::string& data) {
    char size[16];
    std::snprintf(size, sizeof size, "%zx", data.size());
    return std::string(size) + "\r\n" + data + "\r\n";
}

std::string chunked(const std::string& body, size_t piece = 7) {
    std::string out;
    for (size_t i = 0; i < body.size(); i += piece) out += chunk(body.substr(i, piece));
    return out + "0\r\nX-Trailer: t\r\n\r\n";
}

const std::string kBoundary = "=_=b=_=";

std::string multipartBody(const std::string& preamble = "") {
    return preamble + "--" + kBoundary +
           "\r\nContent-Type: text/xml; charset=UTF-8\r\nContent-ID: envelope\r\n\r\n" + kEnvelope + "\r\n--" +
           kBoundary + "\r\nContent-Type: application/octet-stream\r\nContent-ID: 1\r\n\r\nfirst\r\n--" + kBoundary +
           "\r\nContent-ID: 2\r\n\r\nsecond\r\n\r\n--" + kBoundary + "--\r\nepilogue";
}

std::string multipartHead(const std::string& framing) {
    return "HTTP/1.1 200 OK\r\nContent-Type: multipart/related; type=\"text/xml\"; boundary=\"" + kBoundary +
           "\"\r\n" + framing + "\r\n";
}

std::string envelopeText(TALVEXMessageReader& r) {
    MOXIDOM_Document doc;
    r.getEnvelope(doc);
    return MOXIDOM_Helper::toString(doc.getDocumentElement());
}

TALVEXException toolkitError(const std::function<void()>& call) {
    try {
        call();
    } catch (TALVEXException& e) {
        return e;
    }
    ADD_FAILURE() << "no toolkit error";
    return TALVEXException(1, TALVEXException::ErrSocket);
}
}  // namespace

TEST(MessageReader, ChunkedWinsOverAContentLength) {
    MemoryInputStream in("HTTP/1.1 200 OK\r\nContent-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked(kEnvelope));
    TALVEXMessageReaderImp r(0, &in);
    EXPECT_EQ(kEnvelope, envelopeText(r));
    EXPECT_STREQ("200", r.getHeader("talvex-status-code"));
    EXPECT_STREQ("OK", r.getHeader("talvex-reason-phrase"));
    EXPECT_EQ(0, r.isMultipart());

    // A zero length means the body runs to the end of the connection.
    MemoryInputStream zero("HTTP/1.0 200 OK\r\nContent-Length: 0\r\n\r\n" + kEnvelope);
    TALVEXMessageReaderImp z(0, &zero);
    EXPECT_EQ(kEnvelope, envelopeText(z));
}

TEST(MessageReader, EveryFramingReadsTheSameSplitAtEveryByte) {
    const std::string messages[] = {
        "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kEnvelope.size()) + "\r\n\r\n" + kEnvelope,
        "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked(kEnvelope, 3),
        multipartHead("Transfer-Encoding: chunked\r\n") + chunked(multipartBody("preamble text\r\n"), 5),
    };
    for (const std::string& message : messages) {
        for (unsigned piece : {1u, 2u, 13u, 1000u}) {
            MemoryInputStream in(message, piece);
            TALVEXMessageReaderImp r(0, &in);
            EXPECT_EQ(kEnvelope, envelopeText(r)) << "piece " << piece << " of:\n" << message.substr(0, 80);
        }
    }
}

TEST(MessageReader, DestroyingTheReaderLeavesTheConnectionAtTheNextMessage) {
    const std::string next = "HTTP/1.1 202 Accepted\r\nContent-Length: " + std::to_string(kEnvelope.size()) +
                             "\r\n\r\n" + kEnvelope;
    const std::string firsts[] = {
        "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kEnvelope.size() + 10) + "\r\n\r\n" + kEnvelope +
            "          ",
        "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked(kEnvelope + "   "),
        multipartHead("Transfer-Encoding: chunked\r\n") + chunked(multipartBody(), 11),
        multipartHead("Content-Length: " + std::to_string(multipartBody().size()) + "\r\n") + multipartBody(),
    };
    for (const std::string& first : firsts) {
        MemoryInputStream in(first, 64);
        {
            TALVEXMessageReaderImp r(0, &in);
            MOXIDOM_Document doc;
            r.getEnvelope(doc);  // the attachments are left unread
        }
        EXPECT_EQ(first.size(), in.consumed()) << "drained to the end of the message";
        in.append(next);
        TALVEXMessageReaderImp second(0, &in);
        EXPECT_EQ(kEnvelope, envelopeText(second)) << first.substr(0, 60);
        EXPECT_STREQ("202", second.getHeader("talvex-status-code"));
    }
}

// The reader's limits bound the response head, every part head and the
// trailer after the last chunk, which the destructor stops reading at the bound.
TEST(MessageReader, ItsLimitsBoundTheHeadThePartHeadsAndTheTrailer) {
    TALVEXLimits limits;
    limits.maxHeadLine = 200;
    const std::string longHeader = "X-Long: " + std::string(300, 'l') + "\r\n";
    MemoryInputStream head("HTTP/1.1 200 OK\r\n" + longHeader + "\r\n" + kEnvelope);
    TALVEXMessageReaderImp r(0, &head, limits);
    EXPECT_EQ(6, toolkitError([&] { envelopeText(r); }).getCode());

    std::string body = multipartBody();
    body.insert(body.find("Content-ID: 1"), longHeader);
    MemoryInputStream part(multipartHead("Content-Length: " + std::to_string(body.size()) + "\r\n") + body);
    TALVEXMessageReaderImp m(0, &part, limits);
    EXPECT_EQ(kEnvelope, envelopeText(m));
    EXPECT_EQ(6, toolkitError([&] { m.openNextAttachment(); }).getCode());

    std::string message = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked(kEnvelope);
    message.resize(message.size() - 2);
    for (int i = 0; i < 100000; ++i) message += "X-T: t\r\n";
    MemoryInputStream trailer(message + "\r\n");
    {
        TALVEXMessageReaderImp t(0, &trailer, limits);
        EXPECT_EQ(kEnvelope, envelopeText(t));
    }
    EXPECT_LT(trailer.consumed(), message.size() / 4) << "the trailer is read up to its bound only";
}

TEST(MessageReader, AttachmentsAreIteratedAfterTheEnvelope) {
    MemoryInputStream in(multipartHead("Transfer-Encoding: chunked\r\n") + chunked(multipartBody(), 9));
    TALVEXMessageReaderImp r(0, &in);
    PNXInputStream& env = r.openEnvelope();
    EXPECT_EQ(1, r.isMultipart());
    EXPECT_EQ(0, r.hasMoreAttachments()) << "no answer before the envelope is closed";
    EXPECT_EQ(kEnvelope, readAll(env));
    r.closeEnvelope(env);
    ASSERT_EQ(1, r.hasMoreAttachments());
    TALVEXAttachmentReader& a1 = r.openNextAttachment();
    EXPECT_STREQ("1", a1.getContentId());
    EXPECT_STREQ("application/octet-stream", a1.getContentType());
    EXPECT_EQ("first", readAll(a1.getInputStream()));
    r.closeAttachment(a1);
    ASSERT_EQ(1, r.hasMoreAttachments());
    TALVEXAttachmentReader& a2 = r.openNextAttachment();
    EXPECT_EQ(&a1, &a2) << "one attachment reader serves every part";
    EXPECT_STREQ("2", a2.getContentId());
    EXPECT_STREQ("", a2.getContentType());
    EXPECT_EQ("second\r\n", readAll(a2.getInputStream()));
    r.closeAttachment(a2);
    EXPECT_EQ(0, r.hasMoreAttachments());
    TALVEXException e = toolkitError([&] { r.openNextAttachment(); });
    EXPECT_EQ(19, e.getCode());
    EXPECT_EQ("TALVEXMessageReaderImp::openNextAttachment", e.getBackTrace().at(0).function);
}

TEST(MessageReader, AttachmentIterationOnASinglePartMessageIsRefused) {
    MemoryInputStream in("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kEnvelope.size()) + "\r\n\r\n" +
                         kEnvelope);
    TALVEXMessageReaderImp r(0, &in);
    envelopeText(r);
    EXPECT_EQ(0, r.hasMoreAttachments());
    try {
        r.openNextAttachment();
        FAIL();
    } catch (MOXIllegalStateError& e) {
        EXPECT_EQ("not processing multipart HTTP message", e.getBackTrace().at(0).function);
    }
}

TEST(MessageReader, QuotedPrintableEnvelopeIsDecodedAndBase64IsRefused) {
    std::string body = "--" + kBoundary +
                       "\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n"
                       "<s:Envelope xmlns:s=3D\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body><r>4=\r\n2</r>"
                       "</s:Body></s:Envelope>\r\n--" +
                       kBoundary + "--\r\n";
    MemoryInputStream in(multipartHead("Content-Length: " + std::to_string(body.size()) + "\r\n") + body);
    TALVEXMessageReaderImp r(0, &in);
    EXPECT_EQ(kEnvelope, envelopeText(r));

    // A base64 envelope is refused with error 29.
    body = "--" + kBoundary + "\r\nContent-Transfer-Encoding: Base64\r\n\r\nPHgvPg==\r\n--" + kBoundary + "--\r\n";
    MemoryInputStream b64(multipartHead("Content-Length: " + std::to_string(body.size()) + "\r\n") + body);
    TALVEXMessageReaderImp b(0, &b64);
    MOXIDOM_Document doc;
    TALVEXException e = toolkitError([&] { b.getEnvelope(doc); });
    EXPECT_EQ(29, e.getCode());
}

TEST(MessageReader, MalformedEnvelopeReportsLineAndColumn) {
    std::string xml = "<a>\n  <b></c>\n</a>";
    MemoryInputStream in("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(xml.size()) + "\r\n\r\n" + xml);
    TALVEXMessageReaderImp r(0, &in);
    MOXIDOM_Document doc;
    TALVEXException e = toolkitError([&] { r.getEnvelope(doc); });
    EXPECT_EQ(16, e.getCode());
    EXPECT_EQ("TALVEXMessageReaderImp::getEnvelope", e.getBackTrace().at(0).function);
    ASSERT_EQ(2u, e.getMessageCount());
    auto& m = dynamic_cast<const MOXMessage&>(e.getMessageAt(0));
    EXPECT_EQ(0xF2AB0DAFu, m.getNumber());
    ASSERT_EQ(3u, m.getParameters().size());
    EXPECT_EQ(2, m.getParameters()[0].getNumber()) << "line";
    EXPECT_GT(m.getParameters()[1].getNumber(), 0) << "column";
    EXPECT_FALSE(e.getMessageAt(1).format().str().empty()) << "the parser's own text follows";
}

TEST(MessageReader, HostileEnvelopesAreRefusedBeforeTheyCostMemoryOrStack) {
    std::string deep;
    for (int i = 0; i < 1000000; ++i) deep += "<a>";
    TALVEXLimits small;
    small.maxEnvelopeSize = 1000;
    const std::string chunkedHead = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + chunk("<a>");
    struct Row {
        std::string message;
        TALVEXLimits limits;
        int code;
        const char* text;
    } rows[] = {
        {"HTTP/1.1 200 OK\r\n\r\n" + deep, TALVEXLimits(), 16, "elements nested deeper than 1000 levels"},
        {chunkedHead + chunk(std::string(5000, 'x')) + chunk(std::string(5000, 'x')), small, 16,
         "document larger than 1000 bytes"},
        {"HTTP/1.1 200 OK\r\n\r\n" + kEnvelope, TALVEXLimits(), 18, nullptr},  // into a document with a root
    };
    for (const Row& row : rows) {
        MemoryInputStream in(row.message);
        TALVEXMessageReaderImp r(0, &in, row.limits);
        MOXIDOM_Document doc = MOXIDOM_Document::parseString("<root/>");
        MOXIDOM_Node target = row.code == 18 ? MOXIDOM_Node(doc) : doc.getDocumentElement();
        TALVEXException e = toolkitError([&] { r.getEnvelope(target); });
        EXPECT_EQ(row.code, e.getCode());
        EXPECT_EQ("<root/>", MOXIDOM_Helper::toString(doc.getDocumentElement())) << "nothing handed over";
        if (row.text == nullptr) continue;
        EXPECT_EQ(row.text, e.getMessageAt(1).format().str());
        EXPECT_LT(in.consumed(), 100000u) << "refused at the bound, not at the end";
    }

    // The envelope, not a comment before it, reaches the caller.
    MemoryInputStream commented("HTTP/1.1 200 OK\r\n\r\n<!-- generated -->" + kEnvelope);
    TALVEXMessageReaderImp r(0, &commented);
    EXPECT_EQ(kEnvelope, envelopeText(r));
}

TEST(MessageReader, EnvelopeOpenedButNeverClosedSkipsNothingOnDestruction) {
    std::string body = multipartBody();
    body.insert(body.find("first"), std::string(8000, 'x'));
    const std::string message = multipartHead("Transfer-Encoding: chunked\r\n") + chunked(body, 9);
    MemoryInputStream in(message, 4096);
    {
        TALVEXMessageReaderImp r(0, &in);
        r.openEnvelope();
    }
    EXPECT_LT(in.consumed(), message.size()) << "the body is not drained when the envelope was left open";
}

TEST(MessageReader, RequestReaderSeesTheTargetAndSecondOpenIsRefused) {
    MemoryInputStream in("\r\nPOST /svc?x=1 HTTP/1.0\r\nSOAPAction: \"a\"\r\nContent-Length: " +
                         std::to_string(kEnvelope.size()) + "\r\n\r\n" + kEnvelope);
    TALVEXMessageReaderImp r(1, &in);
    EXPECT_EQ(kEnvelope, envelopeText(r));
    EXPECT_STREQ("/svc?x=1", r.getHeader("talvex-uri"));
    EXPECT_STREQ("HTTP/1.0", r.getHeader("talvex-http-version"));
    EXPECT_STREQ("\"a\"", r.getHeader("soapaction"));
    EXPECT_THROW(r.openEnvelope(), MOXIllegalStateError);
}

TEST(MessageReader, ClosingTheEnvelopeClearsTheCallersTimeLimit) {
    const std::string response =
        "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(kEnvelope.size()) + "\r\n\r\n" + kEnvelope;
    LoopbackServer server([&](int fd) {
        LoopbackServer::sendAll(fd, response);
        LoopbackServer::readAll(fd);
    });
    TALVEXSocketNonSSL socket(0);
    socket.open(server.url().c_str(), nullptr, 5);
    socket.getInputStream()->setTimeout(30);
    {
        TALVEXMessageReaderImp r(0, socket.getInputStream());
        EXPECT_EQ(kEnvelope, envelopeText(r));
    }
    EXPECT_EQ(0, socket.getTimeLimitSec());
    EXPECT_EQ(0, socket.getInputStream()->getTimeout());
    socket.getInputStream()->setCancel(1);
    socket.close();
}

TEST(MessageReader, TwoChunkedMultipartResponsesOnOneLoopbackConnection) {
    std::string big;
    for (int i = 0; i < 300000; ++i) big += static_cast<char>(i * 13);
    std::string body = "--" + kBoundary + "\r\nContent-ID: envelope\r\n\r\n" + kEnvelope + "\r\n--" + kBoundary +
                       "\r\nContent-ID: big\r\n\r\n" + big + "\r\n--" + kBoundary + "--\r\n";
    const std::string response = multipartHead("Transfer-Encoding: chunked\r\n") + chunked(body, 4000);
    LoopbackServer server([&](int fd) {
        LoopbackServer::sendAll(fd, response);
        LoopbackServer::readUntil(fd, "next");  // the next request
        LoopbackServer::sendAll(fd, response);
        LoopbackServer::readAll(fd);
    });
    TALVEXSocketNonSSL socket(0);
    socket.open(server.url().c_str(), nullptr, 5);
    {
        TALVEXMessageReaderImp r(0, socket.getInputStream());
        EXPECT_EQ(kEnvelope, envelopeText(r));  // "big" is left for the destructor to drain
    }
    socket.getOutputStream()->write("next", 4);
    TALVEXMessageReaderImp r(0, socket.getInputStream());
    EXPECT_EQ(kEnvelope, envelopeText(r));
    ASSERT_EQ(1, r.hasMoreAttachments());
    TALVEXAttachmentReader& a = r.openNextAttachment();
    EXPECT_TRUE(readAll(a.getInputStream()) == big);
    r.closeAttachment(a);
    EXPECT_EQ(0, r.hasMoreAttachments());
    socket.close();
}
