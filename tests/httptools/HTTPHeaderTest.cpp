#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "moxcore/MOXByteBuffer.h"
#include "moxhttptools/HTTPHeader.h"
#include "moxhttptools/HTTPMessage.h"

namespace {

std::string dumped(const HTTPHeader& header) {
    MOXByteBuffer out(40, 256);
    header.dump(out);
    return std::string(out.str(), out.pcount());
}

const char* const kAbsent = "<absent>";

// Each row: the text parsed, the main value (nullptr: not checked), the
// attributes looked up (kAbsent: no such attribute) and what dump writes.
TEST(HTTPHeader, ParseLookUpAndDump) {
    struct Row {
        const char* text;
        const char* value;
        std::vector<std::pair<const char*, const char*>> attributes;
        std::string dump;
    };
    const std::vector<Row> rows = {
        {" multipart/related; type=\"text/xml\"; boundary=\"=_=vorna-mp-boundary=_=\"\r\n", "multipart/related",
         {{"type", "text/xml"}, {"boundary", "=_=vorna-mp-boundary=_="}},
         "multipart/related; type=\"text/xml\"; boundary=\"=_=vorna-mp-boundary=_=\""},
        // Escapes are resolved and written back.
        {"a/b; q=\"x\\\"y\\\\z;w\"; next=1", "a/b", {{"q", "x\"y\\z;w"}, {"next", "1"}},
         "a/b; q=\"x\\\"y\\\\z;w\"; next=1"},
        // Names match in any case and keep their case in the dump.
        {"Text/XML; CharSet=UTF-8", "Text/XML", {{"charset", "UTF-8"}, {"CHARSET", "UTF-8"}},
         "Text/XML; CharSet=UTF-8"},
        {"multipart/related; type=text/xml", nullptr,
         {{"boundary", kAbsent}, {"typ", kAbsent}, {"types", kAbsent}, {nullptr, kAbsent}},
         "multipart/related; type=\"text/xml\""},
        {nullptr, "", {}, ""},
        {" \t\r\n", "", {}, ""},
        {"; boundary=x", "", {{"boundary", "x"}}, "; boundary=x"},
        {"a; empty=\"\"; bare=; flag", "a", {{"empty", ""}, {"bare", ""}, {"flag", ""}},
         "a; empty=\"\"; bare=\"\"; flag"},
        // Unquoted values of lenient peers.
        {"multipart/related;boundary==_=x=_=?;type=text/xml ;start=<a@b>", nullptr,
         {{"boundary", "=_=x=_=?"}, {"type", "text/xml"}, {"start", "<a@b>"}},
         "multipart/related; boundary=\"=_=x=_=?\"; type=\"text/xml\"; start=\"<a@b>\""},
        // A quoted main value keeps its semicolons.
        {" \"urn:svc;op\" ", "\"urn:svc;op\"", {}, "\"urn:svc;op\""},
        {"\"\"", nullptr, {}, "\"\""},
        // Attributes keep their order and the first of twins wins.
        {"x; b=2; a=1; B=3", nullptr, {{"b", "2"}}, "x; b=2; a=1; B=3"},
        // Broken inputs are taken as far as they go.
        {"a; b=\"open;c=d", nullptr, {}, "a; b=\"open;c=d\""},
        {"a; b=\"x\\", nullptr, {}, "a; b=\"x\\\\\""},
        {"a;;; b=x trailing junk;;", nullptr, {}, "a; b=x"},
        {"a; =v; = ;", nullptr, {}, "a"},
        {"\"unclosed; x=y", nullptr, {}, "\"unclosed; x=y"},
    };
    HTTPHeader reused;
    EXPECT_STREQ("", reused.getValue());
    for (const Row& r : rows) {
        SCOPED_TRACE(r.text ? r.text : "(null)");
        HTTPHeader h;
        h.parse(r.text);
        if (r.value) {
            EXPECT_STREQ(r.value, h.getValue());
        }
        for (const auto& a : r.attributes) {
            if (a.second == kAbsent) {
                EXPECT_EQ(nullptr, h.getAttribute(a.first)) << (a.first ? a.first : "(null)");
            } else {
                EXPECT_STREQ(a.second, h.getAttribute(a.first)) << a.first;
            }
        }
        if (r.text && r.text[0] == ' ' && r.text[1] == '"') {
            EXPECT_EQ(0u, h.getAttributeCount());
        }
        EXPECT_EQ(r.dump, dumped(h));
        // Parsing again replaces all earlier contents.
        reused.parse(r.text);
        EXPECT_EQ(r.dump, dumped(reused));
    }
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
    for (const auto& row : std::vector<std::pair<std::string, std::string>>{
             {" \t\r\n Content-Type \v\r\n", "Content-Type \v"}, {" \r\n\t", ""}, {"a  b", "a  b"}}) {
        std::string text = row.first;
        HTTPMessage::trim(text);
        EXPECT_EQ(row.second, text);
    }
}

}  // namespace
