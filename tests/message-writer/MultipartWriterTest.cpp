#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "WireCapture.h"
#include "http/TALVEXMessageWriterImp.h"
#include "moxcore/MOXErrors.h"
#include "moxidom/MOXIDOM_Document.h"
#include "moxidom/MOXIDOM_Element.h"

namespace {
std::string functionOf(const std::function<void()>& call) {
    try {
        call();
    } catch (MOXThrowable& e) {
        return e.getBackTrace().at(0).function;
    }
    return "<nothing thrown>";
}

std::string binary() {
    std::string data;
    for (int i = 0; i < 5000; ++i) data += static_cast<char>((i * 7) & 0xFF);
    data += "\r\n--=_=vorna-mp-boundary";  // a near miss of the delimiter inside the data
    return data;
}

// The envelope part then whatever `attach` writes, on a multipart request.
ParsedMessage multipart(const std::function<void(TALVEXMessageWriterImp&)>& attach, int chunked = 1,
                        std::string* wireOut = nullptr) {
    std::string wire = captureWire([&](TALVEXSocketNonSSL& s) {
        TALVEXMessageWriterImp w("/mp", 1, 1, &s, chunked, 0, nullptr);
        w.setHeader("X-Extra", "e");
        PNXOutputStream& env = w.openEnvelope();
        env.write("<env/>", 6);
        w.closeEnvelope(env);
        attach(w);
        w.close();
    });
    if (wireOut) *wireOut = wire;
    return parseWithPython(wire);
}
}  // namespace

TEST(MultipartWriter, EnvelopeThenBinaryAttachmentAsAnIndependentParserSeesThem) {
    const std::string data = binary();
    for (int chunked : {1, 0}) {
        std::string wire;
        ParsedMessage m = multipart(
            [&](TALVEXMessageWriterImp& w) {
                std::unique_ptr<std::string> id(w.newContentId());
                w.writeAttachment("application/octet-stream", nullptr, data.data(),
                                  static_cast<unsigned>(data.size()), id->c_str());
            },
            chunked, &wire);
        ASSERT_EQ("", m.error) << wire.substr(0, 400);
        ASSERT_EQ(2u, m.parts.size());
        const ParsedPart& env = m.parts[0];
        EXPECT_EQ("text/xml; charset=UTF-8", env.header("Content-Type"));
        EXPECT_EQ("envelope", env.header("Content-ID"));
        EXPECT_EQ("<absent>", env.header("X-Extra")) << "extra headers go to the HTTP head, not to the parts";
        EXPECT_EQ("Binary", env.header("Content-Transfer-Encoding"));
        EXPECT_EQ("<env/>", env.body);
        const ParsedPart& att = m.parts[1];
        EXPECT_EQ("application/octet-stream", att.header("Content-Type"));
        EXPECT_EQ("1", att.header("Content-ID"));
        EXPECT_EQ("Binary", att.header("Content-Transfer-Encoding"));
        EXPECT_TRUE(att.body == data) << "attachment bytes differ";
        // The header order within a part is the order of the calls.
        ASSERT_EQ(3u, att.headers.size());
        EXPECT_EQ("Content-Type", att.headers[0].first);
        EXPECT_EQ("Content-ID", att.headers[1].first);
        EXPECT_EQ("Content-Transfer-Encoding", att.headers[2].first);
        EXPECT_NE(std::string::npos, wire.substr(0, wire.find("\r\n\r\n")).find("\r\nX-Extra: e\r\n"))
            << "extra headers (credentials, cookies) go to the multipart head";
        EXPECT_EQ(wire.find("X-Extra"), wire.rfind("X-Extra")) << "and only there";
    }
}

TEST(MultipartWriter, TransferEncodingFollowsTheContentType) {
    ParsedMessage m = multipart([](TALVEXMessageWriterImp& w) {
        w.writeAttachment("text/vornatk-pre-encoded-quoted-printable", nullptr, "a=3Db", 5, "qp");
        w.writeAttachment("text/vornatk-pre-encoded-quoted-printable", "utf-8", "x", 1, "qp2");
        w.writeAttachment("text/plain", "", "t", 1, "plain");
    });
    ASSERT_EQ("", m.error);
    ASSERT_EQ(4u, m.parts.size());
    EXPECT_EQ("Quoted-Printable", m.parts[1].header("Content-Transfer-Encoding"));
    EXPECT_EQ("a=3Db", m.parts[1].body) << "pre-encoded content goes as written";
    EXPECT_EQ("text/vornatk-pre-encoded-quoted-printable; charset=utf-8", m.parts[2].header("Content-Type"));
    EXPECT_EQ("Quoted-Printable", m.parts[2].header("Content-Transfer-Encoding"));
    EXPECT_EQ("text/plain; charset=", m.parts[3].header("Content-Type"));
    EXPECT_EQ("Binary", m.parts[3].header("Content-Transfer-Encoding"));
}

TEST(MultipartWriter, CallerHeaderTextIsCutAtCrLf) {
    std::string wire;
    ParsedMessage m = multipart(
        [](TALVEXMessageWriterImp& w) {
            w.writeAttachment("a/b", nullptr, "X-One: 1\r\nX-Two:2\r\n", "d", 1, "h1");
            w.writeAttachment("a/b", nullptr, "no colon at all", "d", 1, "h2");
            w.writeAttachment("a/b", nullptr, "X-A: 1\nX-B: 2", "d", 1, "h3");
        },
        1, &wire);
    EXPECT_NE(std::string::npos, wire.find("\r\nX-One:  1\r\n")) << "the sender adds its blank; the caller's stays";
    ASSERT_EQ("", m.error);
    ASSERT_EQ(4u, m.parts.size());
    const ParsedPart& p1 = m.parts[1];
    ASSERT_EQ(5u, p1.headers.size());
    EXPECT_EQ("X-One", p1.headers[3].first);
    EXPECT_EQ("1", p1.headers[3].second);
    EXPECT_EQ("X-Two", p1.headers[4].first);
    EXPECT_EQ(3u, m.parts[2].headers.size()) << "a text without a colon sets nothing";
    EXPECT_EQ("<absent>", m.parts[3].header("X-B"));
}

TEST(MultipartWriter, XmlAttachmentFromADomNode) {
    MOXIDOM_Document doc;
    MOXIDOM_Element data = doc.createElementNS("urn:data", "d:item");
    data.appendText("42");
    ParsedMessage m = multipart([&](TALVEXMessageWriterImp& w) { w.writeAttachment(data, "xml-1"); });
    ASSERT_EQ("", m.error);
    ASSERT_EQ(2u, m.parts.size());
    EXPECT_EQ("text/xml; charset=UTF_8", m.parts[1].header("Content-Type"));
    EXPECT_EQ("xml-1", m.parts[1].header("Content-ID"));
    EXPECT_EQ("<d:item xmlns:d=\"urn:data\">42</d:item>", m.parts[1].body);
}

TEST(MultipartWriter, OnePartAtATimeAndOnlyOnAMultipartWriter) {
    captureWire([&](TALVEXSocketNonSSL& s) {
        TALVEXMessageWriterImp w("/mp", 1, 1, &s, 1, 0, nullptr);
        PNXOutputStream& env = w.openEnvelope();
        EXPECT_EQ("TALVEXMessageWriterImp::openAttachment - must close prior attachment first",
                  functionOf([&] { w.openAttachment("a/b", nullptr, "x", 0); }));
        EXPECT_EQ("TALVEXMessageWriterImp::close - envelope or attachment was not yet closed",
                  functionOf([&] { w.close(); }));
        try {
            w.closeEnvelope(env);
            FAIL();
        } catch (MOXAssertError& e) {
            EXPECT_STREQ("MOX_ASSERT(m_mp_sender);", e.getText()) << "the senders are gone after the refused close";
        }
    });
    TALVEXSocketNonSSL s(0);
    TALVEXMessageWriterImp one("/", 1, 0, &s, 1, 0, nullptr);
    EXPECT_EQ("TALVEXMessageWriterImp::openAttachment - the writer instance was not constructed for attachments",
              functionOf([&] { one.openAttachment("a/b", nullptr, "x", 0); }));
    try {
        one.closeAttachment(*s.getOutputStream());
        FAIL();
    } catch (MOXAssertError& e) {
        EXPECT_STREQ("MOX_ASSERT(m_has_attachments);", e.getText());
    }
}

TEST(MultipartWriter, TheSameStreamIsReEnabledForEachPart) {
    multipart([](TALVEXMessageWriterImp& w) {
        PNXOutputStream& first = w.openAttachment("a/b", nullptr, "1", 0);
        first.write("1", 1);
        w.closeAttachment(first);
        EXPECT_THROW(first.write("x", 1), MOXIllegalStateError);
        PNXOutputStream& second = w.openAttachment("a/b", nullptr, "2", 0);
        EXPECT_EQ(&first, &second);
        second.write("2", 1);
        w.closeAttachment(second);
    });
}

// Unless one is given, each message has a boundary of its own: a readable
// prefix and 128 random bits, so that no content (an earlier message's
// delimiter line included) can end a part early.
TEST(MultipartWriter, EachMessageHasItsOwnBoundary) {
    TALVEXSocketNonSSL s(0);
    const std::string first = TALVEXMessageWriterImp("/", 1, 1, &s, 1, 0, nullptr).getBoundary();
    const std::string second = TALVEXMessageWriterImp("/", 0, 1, &s, 1, 0, nullptr).getBoundary();
    for (const std::string& b : {first, second}) {
        EXPECT_EQ(0u, b.find("=_=talvex-mp-")) << b;
        EXPECT_EQ(45u, b.size()) << b;
        EXPECT_EQ(std::string::npos, b.find_first_not_of("0123456789abcdef", 13)) << b;
    }
    EXPECT_NE(first, second);
    EXPECT_EQ("given", TALVEXMessageWriterImp("/", 1, 1, &s, 1, 0, "given").getBoundary());
}

TEST(MultipartWriter, ContentIdsCountPerWriter) {
    TALVEXSocketNonSSL s(0);
    TALVEXMessageWriterImp a("/", 1, 1, &s, 1, 0, nullptr);
    for (const char* expected : {"1", "2", "3"}) {
        std::unique_ptr<std::string> id(a.newContentId());
        EXPECT_EQ(expected, *id);
    }
    TALVEXMessageWriterImp b("/", 1, 1, &s, 1, 0, nullptr);
    std::unique_ptr<std::string> id(b.newContentId());
    EXPECT_EQ("1", *id);
}

TEST(MultipartWriter, MultipartResponseStartsWithItsStatusLine) {
    std::string wire = captureWire([&](TALVEXSocketNonSSL& s) {
        TALVEXMessageWriterImp w("/", 0, 1, &s, 0, 0, "custom-boundary");
        w.setResponseStatus(202, "Accepted");
        PNXOutputStream& env = w.openEnvelope();
        env.write("<r/>", 4);
        w.closeEnvelope(env);
        w.close();
    });
    ParsedMessage m = parseWithPython(wire);
    ASSERT_EQ("", m.error);
    EXPECT_EQ("HTTP/1.1 202 Accepted", m.start);
    ASSERT_EQ(1u, m.parts.size());
    EXPECT_EQ("<r/>", m.parts[0].body);
    EXPECT_NE(std::string::npos, wire.find("boundary=\"custom-boundary\""));
}
