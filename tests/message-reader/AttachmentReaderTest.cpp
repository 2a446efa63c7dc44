#include <gtest/gtest.h>

#include <string>

#include "MemoryInputStream.h"
#include "ReadAll.h"
#include "mime/TALVEXMessageReaderImp.h"
#include "moxcore/MOXMessage.h"
#include "talvex/TALVEXException.h"

namespace {
const std::string kBoundary = "part-boundary";

// A response whose envelope is followed by the given parts (header block and
// content each), read with a length.
std::string response(const std::vector<std::pair<std::string, std::string>>& parts) {
    std::string body = "--" + kBoundary + "\r\nContent-ID: envelope\r\n\r\n<e/>";
    for (const auto& p : parts) body += "\r\n--" + kBoundary + "\r\n" + p.first + "\r\n" + p.second;
    body += "\r\n--" + kBoundary + "--\r\n";
    return "HTTP/1.1 200 OK\r\nContent-Type: Multipart/Related; boundary=" + kBoundary +
           "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

struct Message {
    explicit Message(const std::string& text) : in(text, 7), reader(0, &in) {
        PNXInputStream& env = reader.openEnvelope();
        readAll(env);
        reader.closeEnvelope(env);
    }
    TALVEXAttachmentReader& next() { return reader.openNextAttachment(); }
    MemoryInputStream in;
    TALVEXMessageReaderImp reader;
};
}  // namespace

TEST(AttachmentReader, EachPartDecodesOnItsOwnDeclaration) {
    Message m(response({{"Content-Transfer-Encoding: quoted-printable\r\n", "x=3Dy"},
                        {"Content-ID: raw\r\n", "x=3Dy"},
                        {"Content-Transfer-Encoding: QUOTED-PRINTABLE\r\n", "=FF=00"},
                        {"Content-Transfer-Encoding: quoted-printable-extended\r\n", "a=3D"}}));
    TALVEXAttachmentReader& a = m.next();
    PNXInputStream& decoded = a.getInputStream();
    EXPECT_EQ(&decoded, &a.getInputStream()) << "asked twice for one part, the same stream";
    EXPECT_EQ("x=y", readAll(decoded));
    m.reader.closeAttachment(a);
    EXPECT_EQ("x=3Dy", readAll(m.next().getInputStream())) << "a part without the header after a decoded one is raw";
    m.reader.closeAttachment(a);
    PNXInputStream& last = m.next().getInputStream();
    EXPECT_EQ(255, last.read());
    EXPECT_EQ(0, last.read());
    EXPECT_EQ(-1, last.read());
    m.reader.closeAttachment(a);
    EXPECT_EQ("a=3D", readAll(m.next().getInputStream())) << "an overlong transfer encoding is left undecoded";
}

TEST(AttachmentReader, Base64IsRefusedWithTheValueAsSentAndTheNextPartStillReads) {
    Message m(response({{"Content-Transfer-Encoding: Base64\r\n", "AAEC"}, {"Content-ID: after\r\n", "ok"}}));
    TALVEXAttachmentReader& a = m.next();
    try {
        a.getInputStream();
        FAIL();
    } catch (TALVEXException& e) {
        EXPECT_EQ(29, e.getCode());
        EXPECT_EQ("TALVEXAttachmentReaderImp::getInputStream", e.getBackTrace().at(0).function);
        auto& msg = dynamic_cast<const MOXMessage&>(e.getMessageAt(0));
        EXPECT_EQ(0xF2A21E8Eu, msg.getNumber());
        EXPECT_EQ("Base64", msg.getParameters().at(0).getText().str());
    }
    m.reader.closeAttachment(a);
    ASSERT_EQ(1, m.reader.hasMoreAttachments());
    EXPECT_EQ("ok", readAll(m.next().getInputStream()));
}

TEST(AttachmentReader, GzipFlagAndHeaders) {
    Message m(response({{"Content-Encoding: GZIP\r\nContent-Length: 3\r\nX-Custom: v\r\n", "zzz"},
                        {"Content-Encoding: x-gzip\r\n", "zz"}}));
    TALVEXAttachmentReader& a = m.next();
    EXPECT_EQ(1, a.isGzipEncoded());
    EXPECT_EQ(3, a.getContentLength());
    EXPECT_STREQ("v", a.getHeader("x-custom"));
    EXPECT_EQ(nullptr, a.getHeader("X-Custom")) << "names are looked up as stored, in lower case";
    EXPECT_STREQ("", a.getContentId());
    m.reader.closeAttachment(a);
    TALVEXAttachmentReader& b = m.next();
    EXPECT_EQ(0, b.isGzipEncoded());
    EXPECT_EQ(nullptr, b.getHeader("x-custom")) << "headers of the previous part are forgotten";
}

TEST(AttachmentReader, PartEndingInsideItsHeaderBlockHasAnEmptyBody) {
    std::string body = "--" + kBoundary + "\r\nContent-ID: envelope\r\n\r\n<e/>\r\n--" + kBoundary +
                       "\r\nContent-ID: cut\r\nX-A: 1\r\n--" + kBoundary + "--\r\n";
    Message m("HTTP/1.1 200 OK\r\nContent-Type: multipart/related; boundary=" + kBoundary +
              "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body);
    TALVEXAttachmentReader& a = m.next();
    EXPECT_STREQ("cut", a.getContentId());
    EXPECT_STREQ("1", a.getHeader("x-a"));
    EXPECT_EQ(-1, a.getInputStream().read());
}
