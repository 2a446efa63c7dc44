// Parsing: errors and their positions, incremental reading, refused DOCTYPEs.

#include <sys/resource.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "FileWatch.h"
#include "MemoryInputStream.h"
#include "TreeCompare.h"
#include "moxcore/MOXErrors.h"
#include "moxidom/MOXIDOM.h"

namespace {

const char SOAP_ENV[] = "http://schemas.xmlsoap.org/soap/envelope/";

const std::string kEnvelope =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
    "<soapenv:Envelope xmlns:soapenv=\"http://schemas.xmlsoap.org/soap/envelope/\">"
    "<soapenv:Body><r:result xmlns:r=\"urn:r\" unit=\"\xe2\x82\xac\">"
    "Gr\xc3\xbc\xc3\x9f" "e \xf0\x9f\x98\x80 &amp; more</r:result></soapenv:Body></soapenv:Envelope>";

// Whole, and from a stream giving one byte at a time: the same tree.
TEST(DomParser, ParsesAnEnvelopeFromAStream) {
    MemoryInputStream in(kEnvelope);
    MOXIDOM_Parser parser(0);
    MOXIDOM_Document doc;
    ASSERT_NE(0, parser.parse(in, doc)) << parser.errorString();
    EXPECT_EQ(0, parser.getErrorCode());
    EXPECT_STREQ("", parser.errorString());
    MOXIDOM_Element result = doc.getFirstChild().getFirstChildElement(SOAP_ENV, "Body").getFirstChildElement("urn:r", "result");
    EXPECT_EQ("\xe2\x82\xac", result.getAttribute("unit"));
    EXPECT_EQ("Gr\xc3\xbc\xc3\x9f" "e \xf0\x9f\x98\x80 & more", result.getTextContent());

    MemoryInputStream trickle(kEnvelope, 1);
    MOXIDOM_Document fromTrickle;
    ASSERT_NE(0, parser.parse(trickle, fromTrickle)) << parser.errorString();
    EXPECT_GT(trickle.reads(), kEnvelope.size() / 2) << "the stream really was read in single bytes";
    expectSameTree(doc, fromTrickle);

    // A UTF-16 document with a byte order mark, trickled as well, so the
    // encoding must be recognised from the first bytes.
    std::string utf16 = "\xff\xfe";
    for (char c : std::string("<a>x</a>")) utf16 += std::string(1, c) + '\0';
    MemoryInputStream trickle16(utf16, 1);
    MOXIDOM_Document doc16;
    ASSERT_NE(0, parser.parse(trickle16, doc16)) << parser.errorString();
    EXPECT_EQ("x", doc16.getDocumentElement().getTextContent());
}

TEST(DomParser, ALargeDocumentIsReadInBlocks) {
    std::string xml = "<list>";
    const int items = 70000;
    for (int i = 0; i < items; ++i)
        xml += "<item n=\"" + std::to_string(i) + "\">some text of the item, long enough to add up</item>\n";
    xml += "</list>";
    ASSERT_GT(xml.size(), 4u << 20);

    MemoryInputStream in(xml);
    MOXIDOM_Parser parser(0);
    MOXIDOM_Document doc;
    ASSERT_NE(0, parser.parse(in, doc)) << parser.errorString();
    EXPECT_EQ(static_cast<size_t>(items), doc.getDocumentElement().getChildElements().size());
    EXPECT_EQ(xml.size(), in.position());
    EXPECT_LE(in.largestRequest(), 64u * 1024) << "never asks for the whole body at once";
    EXPECT_GE(in.reads(), xml.size() / (64 * 1024));
}

TEST(DomParser, MalformedXmlReportsWhereAndWhat) {
    const std::string bad = "<a>\n  <b>text</c>\n</a>";
    MemoryInputStream in(bad);
    MOXIDOM_Parser parser(0);
    MOXIDOM_Document doc = MOXIDOM_Document::parseString("<previous/>");
    EXPECT_EQ(0, parser.parse(in, doc));
    EXPECT_NE(0, parser.getErrorCode());
    EXPECT_EQ(2, parser.getCurrentLineNumber());
    EXPECT_EQ(12, parser.getCurrentColumnNumber()) << "at the name of the wrong end tag";
    EXPECT_NE(std::string::npos, std::string(parser.errorString()).find("'b'")) << parser.errorString();
    EXPECT_EQ("previous", doc.getDocumentElement().getLocalName()) << "a failed parse leaves the document alone";

    // The next parse starts clean.
    MemoryInputStream good("<ok/>");
    ASSERT_NE(0, parser.parse(good, doc));
    EXPECT_EQ(0, parser.getCurrentLineNumber());
    EXPECT_STREQ("", parser.errorString());

    try {
        MOXIDOM_Document::parseString("<a>\n<b x='1' x='2'/></a>");
        ADD_FAILURE() << "accepted a duplicate attribute";
    } catch (const MOXIDOM_ParseException& e) {
        EXPECT_EQ(2, e.getLineNumber());
        EXPECT_GT(e.getColumnNumber(), 1);
        EXPECT_EQ(0u, std::string(e.what()).find("XML parse error at line 2, column ")) << e.what();
    }
    EXPECT_THROW(MOXIDOM_Document::parseString(""), MOXIDOM_ParseException);
    EXPECT_THROW(MOXIDOM_Document::parseString("<p:a/>"), MOXIDOM_ParseException) << "unbound prefix";
    EXPECT_THROW(MOXIDOM_Document::parseString("<a/><b/>"), MOXIDOM_ParseException);
}

TEST(DomParser, ExceptionsOfTheStreamReachTheCaller) {
    std::string xml = "<a>";
    for (int i = 0; i < 20000; ++i) xml += "<b>x</b>";
    xml += "</a>";
    MemoryInputStream in(xml, 1000);
    in.failAt(100000);
    MOXIDOM_Parser parser(0);
    MOXIDOM_Document doc;
    EXPECT_THROW(parser.parse(in, doc), MemoryInputStream::Failure);
    EXPECT_TRUE(doc.getDocumentElement() == NULL);

    MemoryInputStream again("<a/>");
    EXPECT_NE(0, parser.parse(again, doc)) << "the parser is usable after an aborted parse";
}

// An element opened without end, then text without end.
class EndlessInputStream : public PNXInputStream {
public:
    int read() override { return 'x'; }
    unsigned read(char* buf, unsigned n) override {
        unsigned i = 0;
        for (; i < n && m_opened < 3; ++i) buf[i] = "<a>"[m_opened++];
        std::memset(buf + i, 'x', n - i);
        return n;
    }
    unsigned read(MOXByteBuffer&, unsigned) override { return PNX_EOF; }

private:
    unsigned m_opened = 0;
};

TEST(DomParser, DocumentsBeyondTheBoundsAreRefusedEarly) {
    std::string million;
    for (int i = 0; i < 1000000; ++i) million += "<a>";
    const std::string thousand = million.substr(0, 3000) + std::string("x") + [] {
        std::string end;
        for (int i = 0; i < 1000; ++i) end += "</a>";
        return end;
    }();
    struct Row {
        std::string xml;
        size_t maxBytes, maxDepth;
        const char* refusal;  // null: parses
    } rows[] = {
        {million, 0, 1000, "elements nested deeper than 1000 levels"},
        {thousand, 0, 1000, nullptr},
        {thousand, thousand.size(), 0, nullptr},
        {thousand, thousand.size() - 1, 0, "document larger than 7000 bytes"},
        {"<a>" + std::string(1000000, 'x'), 100000, 0, "document larger than 100000 bytes"},
    };
    MOXIDOM_Parser parser(0);
    for (const Row& row : rows) {
        parser.setLimits(row.maxBytes, row.maxDepth);
        MemoryInputStream in(row.xml);
        MOXIDOM_Document doc;
        MOXIDOM_Document fromText;
        EXPECT_EQ(row.refusal == nullptr, parser.parse(in, doc) != 0) << parser.errorString();
        EXPECT_EQ(row.refusal == nullptr, parser.parse(row.xml, fromText) != 0) << parser.errorString();
        if (row.refusal == nullptr) continue;
        EXPECT_EQ(165, parser.getErrorCode());
        EXPECT_STREQ(row.refusal, parser.errorString());
        EXPECT_LE(in.position(), 200000u) << "stopped at the bound, not at the end";
        EXPECT_TRUE(doc.getDocumentElement() == NULL);
    }
}

// In 256 MiB of address space an endless text fills the memory: 0 when that
// ends in MOXOutOfMemoryError.
int parseUntilMemoryRunsOut() {
    const rlimit limit{256u << 20, 256u << 20};
    setrlimit(RLIMIT_AS, &limit);
    EndlessInputStream in;
    MOXIDOM_Parser parser(0);
    MOXIDOM_Document doc;
    try {
        parser.parse(in, doc);
    } catch (const MOXOutOfMemoryError&) {
        return 0;
    }
    return 1;
}

TEST(DomParser, RunningOutOfMemoryIsAnOutOfMemoryError) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "an address space limit does not fit the sanitizers' shadow memory";
#endif
    EXPECT_EXIT(std::exit(parseUntilMemoryRunsOut()), testing::ExitedWithCode(0), "");
}

TEST(DomParser, DoctypesAreRefusedAndNothingExternalIsOpened) {
    const std::string path = std::string(TALVEX_TEST_BINARY_DIR) + "/dom_parser_secret.txt";
    const std::string secret = "TOP-SECRET-CONTENT";
    {
        std::ofstream f(path);
        f << secret;
    }
    FileWatch watch(path);
    ASSERT_TRUE(watch.ok());

    const std::string url = "file://" + path;
    const std::string attempts[] = {
        "<!DOCTYPE a SYSTEM \"" + url + "\"><a>x</a>",
        "<!DOCTYPE a SYSTEM \"" + path + "\"><a>x</a>",
        "<!DOCTYPE a [<!ENTITY e SYSTEM \"" + url + "\">]><a>&e;</a>",
        "<?xml version=\"1.0\"?>\n<!DOCTYPE a PUBLIC \"-//x//y\" \"" + url + "\" [\n<!ENTITY e SYSTEM \"" + path +
            "\">\n]>\n<a>&e;</a>",
        "<!DOCTYPE a [<!ENTITY a \"aaaaaaaaaa\"><!ENTITY b \"&a;&a;&a;&a;&a;&a;&a;&a;&a;&a;\">]><a>&b;</a>",
    };
    for (const std::string& xml : attempts) {
        MemoryInputStream in(xml);
        MOXIDOM_Parser parser(0);
        MOXIDOM_Document doc;
        EXPECT_EQ(0, parser.parse(in, doc)) << xml;
        EXPECT_NE(std::string::npos, std::string(parser.errorString()).find("DOCTYPE")) << parser.errorString();
        EXPECT_GT(parser.getCurrentLineNumber(), 0);
        EXPECT_EQ(std::string::npos, MOXIDOM_Helper::toString(doc).find(secret));
    }
    // Nor are schema location hints followed.
    MemoryInputStream hint("<a xmlns:xsi='http://www.w3.org/2001/XMLSchema-instance' xsi:noNamespaceSchemaLocation='" +
                           path + "'/>");
    MOXIDOM_Parser parser(0);
    MOXIDOM_Document doc;
    EXPECT_NE(0, parser.parse(hint, doc)) << parser.errorString();
    EXPECT_FALSE(watch.touched()) << "the parser opened or read the referenced file";

    // The watch itself works.
    std::ifstream(path).get();
    EXPECT_TRUE(watch.touched());
    std::remove(path.c_str());
}

}  // namespace
