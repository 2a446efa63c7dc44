#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "moxcore/MOXByteBuffer.h"
#include "moxhttptools/HTTPHeader.h"
#include "moxhttptools/HTTPMessage.h"

namespace {

std::string dumped(const HTTPHeader& header) {
    MOXByteBuffer out(40, 256);
    header.dump(out);
    return std::string(out.str(), out.pcount());
}

std::string dumpOf(const char* value) {
    HTTPHeader header;
    header.parse(value);
    return dumped(header);
}

TEST(HTTPHeader, QuotedBoundaryWithEqualsSigns) {
    HTTPHeader h;
    h.parse(" multipart/related; type=\"text/xml\"; boundary=\"=_=vorna-mp-boundary=_=\"\r\n");
    EXPECT_STREQ("multipart/related", h.getValue());
    EXPECT_STREQ("text/xml", h.getAttribute("type"));
    EXPECT_STREQ("=_=vorna-mp-boundary=_=", h.getAttribute("boundary"));
    EXPECT_EQ("multipart/related; type=\"text/xml\"; boundary=\"=_=vorna-mp-boundary=_=\"", dumped(h));
}

TEST(HTTPHeader, EscapesAreResolvedAndWrittenBack) {
    HTTPHeader h;
    h.parse("a/b; q=\"x\\\"y\\\\z;w\"; next=1");
    EXPECT_STREQ("x\"y\\z;w", h.getAttribute("q"));
    EXPECT_STREQ("1", h.getAttribute("next"));
    EXPECT_EQ("a/b; q=\"x\\\"y\\\\z;w\"; next=1", dumped(h));
}

TEST(HTTPHeader, NamesMatchInAnyCaseAndKeepTheirCaseInTheDump) {
    HTTPHeader h;
    h.parse("Text/XML; CharSet=UTF-8");
    EXPECT_STREQ("Text/XML", h.getValue());
    EXPECT_STREQ("UTF-8", h.getAttribute("charset"));
    EXPECT_STREQ("UTF-8", h.getAttribute("CHARSET"));
    EXPECT_EQ("Text/XML; CharSet=UTF-8", dumped(h));
}

TEST(HTTPHeader, MissingAttributeIsNull) {
    HTTPHeader h;
    h.parse("multipart/related; type=text/xml");
    EXPECT_EQ(nullptr, h.getAttribute("boundary"));
    EXPECT_EQ(nullptr, h.getAttribute("typ"));
    EXPECT_EQ(nullptr, h.getAttribute("types"));
    EXPECT_EQ(nullptr, h.getAttribute(nullptr));
}

TEST(HTTPHeader, EmptyValues) {
    HTTPHeader h;
    EXPECT_STREQ("", h.getValue());
    h.parse(nullptr);
    EXPECT_STREQ("", h.getValue());
    h.parse(" \t\r\n");
    EXPECT_STREQ("", h.getValue());
    EXPECT_EQ("", dumped(h));
    h.parse("; boundary=x");
    EXPECT_STREQ("", h.getValue());
    EXPECT_STREQ("x", h.getAttribute("boundary"));
    h.parse("a; empty=\"\"; bare=; flag");
    EXPECT_STREQ("", h.getAttribute("empty"));
    EXPECT_STREQ("", h.getAttribute("bare"));
    EXPECT_STREQ("", h.getAttribute("flag"));
    EXPECT_EQ("a; empty=\"\"; bare=\"\"; flag", dumped(h));
}

TEST(HTTPHeader, UnquotedValuesOfLenientPeers) {
    HTTPHeader h;
    h.parse("multipart/related;boundary==_=x=_=?;type=text/xml ;start=<a@b>");
    EXPECT_STREQ("=_=x=_=?", h.getAttribute("boundary"));
    EXPECT_STREQ("text/xml", h.getAttribute("type"));
    EXPECT_STREQ("<a@b>", h.getAttribute("start"));
    EXPECT_EQ("multipart/related; boundary=\"=_=x=_=?\"; type=\"text/xml\"; start=\"<a@b>\"", dumped(h));
}

TEST(HTTPHeader, QuotedMainValueKeepsItsSemicolons) {
    HTTPHeader h;
    h.parse(" \"urn:svc;op\" ");
    EXPECT_STREQ("\"urn:svc;op\"", h.getValue());
    EXPECT_EQ(0u, h.getAttributeCount());
    EXPECT_EQ("\"\"", dumpOf("\"\""));
}

TEST(HTTPHeader, AttributesKeepTheirOrderAndTheFirstOfTwinsWins) {
    HTTPHeader h;
    h.parse("x; b=2; a=1; B=3");
    EXPECT_STREQ("2", h.getAttribute("b"));
    EXPECT_EQ("x; b=2; a=1; B=3", dumped(h));
}

TEST(HTTPHeader, ParseReplacesEarlierContents) {
    HTTPHeader h;
    h.parse("a; x=1");
    h.parse("b");
    EXPECT_STREQ("b", h.getValue());
    EXPECT_EQ(nullptr, h.getAttribute("x"));
}

TEST(HTTPHeader, BrokenInputsAreTakenAsFarAsTheyGo) {
    EXPECT_EQ("a; b=\"open;c=d\"", dumpOf("a; b=\"open;c=d"));   // unterminated quote runs to the end
    EXPECT_EQ("a; b=\"x\\\\\"", dumpOf("a; b=\"x\\"));          // lone backslash kept
    EXPECT_EQ("a; b=x", dumpOf("a;;; b=x trailing junk;;"));    // empty attributes and junk dropped
    EXPECT_EQ("a", dumpOf("a; =v; = ;"));                       // nameless attributes dropped
    EXPECT_EQ("\"unclosed; x=y", dumpOf("\"unclosed; x=y"));    // main value swallows the rest
}

// Any byte string: no crash, and what dump writes parses back to the same thing.
TEST(HTTPHeader, ArbitraryBytesNeverBreakItAndDumpRoundTrips) {
    const char alphabet[] = "ab=;\"\\ \t\r\n/:,x\x01\x7f\xff";
    std::uint32_t state = 12345;
    for (int round = 0; round < 20000; ++round) {
        std::string text;
        int length = static_cast<int>((state >> 7) % 24);
        for (int i = 0; i < length; ++i) {
            state = state * 1103515245u + 12345u;
            text += alphabet[(state >> 16) % (sizeof(alphabet) - 1)];
        }
        state = state * 1103515245u + 12345u;
        HTTPHeader first;
        first.parse(text.c_str());
        first.getAttribute("a");
        std::string once = dumped(first);
        HTTPHeader second;
        second.parse(once.c_str());
        ASSERT_EQ(once, dumped(second)) << "input: " << text;
        ASSERT_STREQ(first.getValue(), second.getValue());
        ASSERT_EQ(first.getAttributeCount(), second.getAttributeCount());
    }
}

TEST(HTTPMessage, TrimRemovesBlanksTabsAndLineEndsOnly) {
    std::string text = " \t\r\n Content-Type \v\r\n";
    HTTPMessage::trim(text);
    EXPECT_EQ("Content-Type \v", text);
    std::string blank = " \r\n\t";
    HTTPMessage::trim(blank);
    EXPECT_EQ("", blank);
    std::string inner = "a  b";
    HTTPMessage::trim(inner);
    EXPECT_EQ("a  b", inner);
}

}  // namespace
