#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HeadFeed.h"
#include "ParserExpectations.h"
#include "PartStream.h"
#include "http/TALVEXHTTPParser.h"
#include "moxcore/MOXErrors.h"

namespace {

const unsigned kMsgHeadIncomplete = 0xF2AD7BA3;
const unsigned kMsgNotPost = 0xF2A987E8;
const unsigned kMsgVersion = 0xF2A260D2;
const unsigned kMsgRequestLine = 0xF2AD7530;
const unsigned kMsgStatusLine = 0xF2A503ED;
const unsigned kMsgContentType = 0xF2A4A8F1;
const unsigned kMsgBoundary = 0xF2A23B5F;
const unsigned kMsgContentId = 0xF2A4A974;
const unsigned kMsgContentLength = 0xF2A728B0;
const unsigned kMsgTransferEncoding = 0xF2AD19C2;

const char kParseRequest[] = "TALVEXHTTPParser::parseRequest";
const char kParseResponse[] = "TALVEXHTTPParser::parseResponse";
const char kProcessHeaders[] = "TALVEXHTTPParser::processHeaders";
const char kProcessHeader[] = "TALVEXHTTPParser::processHeader";
const char kValidateRequest[] = "TALVEXHTTPParser::validateRequestLine";
const char kValidateResponse[] = "TALVEXHTTPParser::validateResponseLine";

std::string header(const TALVEXHTTPParser& p, const char* name) {
    const char* v = p.getHeader(name);
    return v != nullptr ? v : "(absent)";
}

// A response head made of these header lines, then the body "BODY".
std::string responseWith(const std::string& headerLines) {
    return "HTTP/1.1 200 OK\r\n" + headerLines + "\r\nBODY";
}

}  // namespace

// ---------------------------------------------------------------- request line

TEST(ParserRequest, BlankLinesBeforeTheRequestArePassedOver) {
    const std::string head = "POST /svc/x HTTP/1.1\r\nHost: h\r\n\r\n";
    HeadFeed plain(head + "BODY");
    HeadFeed padded("\r\n\n\r\n\n" + head + "BODY");
    TALVEXHTTPParser a, b;
    a.parseRequest(plain.stream());
    b.parseRequest(padded.stream());
    for (const char* key : {"talvex-uri", "talvex-http-version", "host"}) EXPECT_EQ(header(a, key), header(b, key));
    EXPECT_EQ("/svc/x", header(b, "talvex-uri"));
    EXPECT_EQ("HTTP/1.1", header(b, "talvex-http-version"));
    EXPECT_EQ("BODY", padded.remaining()) << "the head ends at its empty line, not a byte later";
}

// Each row: the bytes, then the code, message, raising step and added text.
// A refused method is shown with the refused byte and at most 21 more (fewer
// when the stream ends, skipped blank lines left out), line ends as "?".
TEST(ParserRequest, RefusedStartLines) {
    struct Row {
        std::string data;
        int code;
        unsigned message;
        const char* function;
        std::string detail;
    };
    const std::string refusedLong = "POST /" + std::string(100000, 'u') + " HTTP/9.9";
    const std::vector<Row> rows = {
        {"GET / HTTP/1.1\r\nHost: a\r\n\r\n", 7, kMsgNotPost, kParseRequest, "GET / HTTP/1.1??Host: ..."},
        {"\r\n\nGE", 7, kMsgNotPost, kParseRequest, "GE..."},
        {"\rPOST / HTTP/1.1\r\n\r\n", 7, kMsgNotPost, kParseRequest, "?POST / HTTP/1.1????..."},
        {"POXT /abcdefghijklmnopqrstuvwxyz HTTP/1.1\r\n\r\n", 7, kMsgNotPost, kParseRequest, "POXT /abcdefghijklmnopqr..."},
        {"POS\nPOST / HTTP/1.1\r\n\r\n", 7, kMsgNotPost, kParseRequest, "POS?POST / HTTP/1.1????..."},
        {"post / HTTP/1.1\r\n\r\n", 7, kMsgNotPost, kParseRequest, "post / HTTP/1.1????..."},
        // POST followed by letters passes the scan and is refused with the whole line.
        {"POSTX /a HTTP/1.1\r\n\r\n", 7, kMsgNotPost, kValidateRequest, "POSTX /a HTTP/1.1"},
        {"POST /a\r\n\r\n", 9, kMsgRequestLine, kValidateRequest, "POST /a"},
        {"POST  \t\r\n\r\n", 9, kMsgRequestLine, kValidateRequest, "POST"},
        {"POST /kept HTTP/2.0\r\n\r\n", 8, kMsgVersion, kValidateRequest, "POST /kept HTTP/2.0"},
        {"POST / http/1.1\r\n\r\n", 8, kMsgVersion, kValidateRequest, "POST / http/1.1"},
        // The added text is the whole line, however long.
        {refusedLong + "\r\n\r\n", 8, kMsgVersion, kValidateRequest, refusedLong},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.data.substr(0, 40));
        HeadFeed f(r.data);
        TALVEXHTTPParser p;
        EXPECT_TRUE(raisesParserError([&] { p.parseRequest(f.stream()); }, r.code, r.message, r.function,
                                      r.detail.c_str()));
        if (r.data.compare(0, 3, "GET") == 0) {
            EXPECT_EQ("a\r\n\r\n", f.remaining()) << "exactly 21 bytes are read after the refused one";
        }
        if (r.code == 8 && r.data.compare(0, 10, "POST /kept") == 0) {
            EXPECT_EQ("/kept", header(p, "talvex-uri")) << "the URI stored before the refusal is kept";
        }
    }
}

TEST(ParserRequest, FourthTokenIsIgnoredAndTabsSeparateToo) {
    HeadFeed f("POST\t/a \t HTTP/1.0   extra tokens\r\n\r\n");
    TALVEXHTTPParser p;
    p.parseRequest(f.stream());
    EXPECT_EQ("/a", header(p, "talvex-uri"));
    EXPECT_EQ("HTTP/1.0", header(p, "talvex-http-version"));
    EXPECT_EQ("(absent)", header(p, "talvex-status-code"));
}

// The stream ending anywhere in a head gives code 6 from the step reading.
TEST(ParserHead, StreamEndingAnywhereInTheHeadGivesCode6FromTheStepReading) {
    struct Case {
        bool request;
        const char* data;
        const char* function;
    } cases[] = {
        {true, "", kParseRequest},
        {true, "\r\n\r\n", kParseRequest},
        {true, "\r", kParseRequest},
        {true, "POS", kParseRequest},
        {true, "POST", kParseRequest},
        {true, "POST / HTTP/1.1", kParseRequest},  // cut inside the request line
        {true, "POST / HTTP/1.1\r\nHost: x", kProcessHeaders},  // cut inside a header line
        {true, "POST / HTTP/1.1\r\n", kProcessHeaders},
        {true, "POST / HTTP/1.1\r\nHost: x\r\n", kProcessHeaders},
        {false, "", kParseResponse},
        {false, "\r\n\r\n", kParseResponse},
        {false, "HTTP/1.1 100 Continue\r\n\r\n", kParseResponse},
        {false, "HTTP/1.1 100 Continue\r\nA: b\r\n", kProcessHeaders},
        {false, "HTTP/1.1 200 OK", kParseResponse},  // cut inside the status line
        {false, "HTTP/1.1 200 OK\r\nContent-Type: text/x", kProcessHeaders},  // cut inside a header line
        {false, "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n", kProcessHeaders},
    };
    for (const Case& c : cases) {
        HeadFeed f(c.data);
        TALVEXHTTPParser p;
        EXPECT_TRUE(raisesParserError(
            [&] { c.request ? p.parseRequest(f.stream()) : p.parseResponse(f.stream()); }, 6, kMsgHeadIncomplete,
            c.function, nullptr))
            << "data: " << ::testing::PrintToString(std::string(c.data));
    }
}

TEST(ParserRequest, NullStreamIsAnAssertion) {
    TALVEXHTTPParser p;
    EXPECT_TRUE(raisesAssertion([&] { p.parseRequest(nullptr); }, "MOX_ASSERT(is);"));
    EXPECT_TRUE(raisesAssertion([&] { p.parseResponse(nullptr); }, "MOX_ASSERT(is);"));
    EXPECT_TRUE(raisesAssertion([&] { p.parsePartHeaders(nullptr); }, "MOX_ASSERT(is);"));
}

// ----------------------------------------------------------------- status line

// Every 1xx but 101 is interim: 100 Continue, 102 Processing, 103 Early Hints.
TEST(ParserResponse, InterimResponsesArePassedOverWithTheirHeaders) {
    HeadFeed f(
        "HTTP/1.1 100 Continue\r\nX-Interim: yes\r\nContent-Length: 99\r\nTransfer-Encoding: chunked\r\n\r\n"
        "HTTP/1.1 102 Processing\r\n\r\n"
        "HTTP/1.1 103 Early Hints\r\nLink: </style.css>; rel=preload\r\n\r\n"
        "HTTP/1.0 200 All Fine\r\nX-Final: 1\r\n\r\nBODY");
    TALVEXHTTPParser p;
    p.parseResponse(f.stream());
    EXPECT_EQ("200", header(p, "talvex-status-code"));
    EXPECT_EQ("All Fine", header(p, "talvex-reason-phrase"));
    EXPECT_EQ("HTTP/1.0", header(p, "talvex-http-version"));
    EXPECT_EQ("(absent)", header(p, "x-interim"));
    EXPECT_EQ("(absent)", header(p, "link"));
    EXPECT_EQ(dumpOf(" 1"), header(p, "x-final"));
    EXPECT_EQ(0, p.getContentLength()) << "framing of the interim head must not leak into the final one";
    EXPECT_EQ(0, p.isChunked());
    EXPECT_EQ("BODY", f.remaining());

    HeadFeed switching("HTTP/1.1 101 Switching Protocols\r\nUpgrade: x\r\n\r\nBODY");
    p.parseResponse(switching.stream());
    EXPECT_EQ("101", header(p, "talvex-status-code")) << "101 is a final head";
    EXPECT_EQ("BODY", switching.remaining());
}

TEST(ParserResponse, StatusCodeIsReadAsAtoiReadsIt) {
    // "100abc" counts as 100: an interim head whose headers are dropped.
    HeadFeed interim("HTTP/1.1 100abc x\r\nA: 1\r\n\r\nHTTP/1.1 201 Created\r\nB: 2\r\n\r\n");
    TALVEXHTTPParser p;
    p.parseResponse(interim.stream());
    EXPECT_EQ("201", header(p, "talvex-status-code"));
    EXPECT_EQ("(absent)", header(p, "a"));
    EXPECT_EQ(dumpOf(" 2"), header(p, "b"));

    // Letters give 0: a final head, kept unchanged as text.
    HeadFeed letters("HTTP/1.1 abc Odd Status\r\nA: 1\r\n\r\nBODY");
    TALVEXHTTPParser q;
    q.parseResponse(letters.stream());
    EXPECT_EQ("abc", header(q, "talvex-status-code"));
    EXPECT_EQ("Odd Status", header(q, "talvex-reason-phrase"));
    EXPECT_EQ(dumpOf(" 1"), header(q, "a"));
    EXPECT_EQ("BODY", letters.remaining());
}

TEST(ParserResponse, ReasonPhraseKeepsInnerBlanksAndIsEmptyWhenTheLineEndsAfterTheCode) {
    HeadFeed spaced("HTTP/1.1 404 \tNot  Found \r\n\r\n");
    TALVEXHTTPParser p;
    p.parseResponse(spaced.stream());
    EXPECT_EQ("Not  Found", header(p, "talvex-reason-phrase"));

    std::string blanks;  // blank lines before the status line are skipped without limit
    for (int i = 0; i < 5000; ++i) blanks += (i % 3 == 0) ? " \t\r\n" : (i % 3 == 1 ? "\n" : "\r\n");
    HeadFeed bare(blanks + "HTTP/1.1 204\r\n\r\nB");
    p.parseResponse(bare.stream());
    EXPECT_EQ("B", bare.remaining());
    EXPECT_EQ("204", header(p, "talvex-status-code"));
    EXPECT_EQ("", header(p, "talvex-reason-phrase")) << "present and empty, not the earlier phrase";
}

TEST(ParserResponse, VersionAloneGivesCode10AndAWrongVersionCode8) {
    TALVEXHTTPParser p;
    HeadFeed alone("HTTP/1.1\r\n\r\n");
    EXPECT_TRUE(raisesParserError([&] { p.parseResponse(alone.stream()); }, 10, kMsgStatusLine, kValidateResponse,
                                  "HTTP/1.1"));
    HeadFeed v2("HTTP/2 200 OK\r\n\r\n");
    EXPECT_TRUE(raisesParserError([&] { p.parseResponse(v2.stream()); }, 8, kMsgVersion, kValidateResponse,
                                  "HTTP/2 200 OK"));
    HeadFeed binary(std::string("HTTP/1.1\x01 200 \xC3\xA9t\xC3\xA9\r\n\r\n"));
    EXPECT_TRUE(raisesParserError([&] { p.parseResponse(binary.stream()); }, 8, kMsgVersion, kValidateResponse,
                                  "HTTP/1.1? 200 ??t??"));
}

// --------------------------------------------------------------------- headers

// Malformed lengths are refused with the rows of the table below.
TEST(ParserHeaders, ContentLengthIsDigitsAndRepeatedLengthsMustAgree) {
    struct Case {
        const char* lines;
        int expected;
    } cases[] = {
        {"Content-Length: 12\r\n", 12},
        {"Content-Length: 5\r\nContent-Length: 05\r\n", 5},
        {"Content-Length: 7 ,\t7\r\n", 7},
        {"Content-Length: 99999999999999999999\r\n", 2147483647},
    };
    for (const Case& c : cases) {
        HeadFeed f(responseWith(c.lines));
        TALVEXHTTPParser p;
        p.parseResponse(f.stream());
        EXPECT_EQ(c.expected, p.getContentLength()) << c.lines;
        EXPECT_EQ("BODY", f.remaining());
    }
}

TEST(ParserHeaders, MalformedFramingValuesAndMissingBoundariesAreRefusedWithTheLine) {
    const std::string line71 = "Content-Type: multipart/mixed; boundary=\"" + std::string(71, 'b') + "\"";
    struct Case {
        const char* line;
        int code;
        unsigned message;
        const char* shown;
    } cases[] = {
        {"Content-Type:", 11, kMsgContentType, "Content-Type:"},
        {"content-type:  ; charset=utf-8", 11, kMsgContentType, "content-type:  ; charset=utf-8"},
        {"Content-ID: \t", 13, kMsgContentId, "Content-ID:"},
        {"Content-Length:", 14, kMsgContentLength, "Content-Length:"},
        {"Content-Length: ;x=1", 14, kMsgContentLength, "Content-Length: ;x=1"},
        // A length must be digits, and a repeated one the same number.
        {"Content-Length: 12abc", 14, kMsgContentLength, nullptr},
        {"Content-Length: abc", 14, kMsgContentLength, nullptr},
        {"Content-Length: +7", 14, kMsgContentLength, nullptr},
        {"Content-Length: -5", 14, kMsgContentLength, nullptr},
        {"Content-Length: 5, 6", 14, kMsgContentLength, nullptr},
        {"Content-Length: 5,", 14, kMsgContentLength, nullptr},
        {"Content-Length: 5\r\nContent-Length: 9", 14, kMsgContentLength, "Content-Length: 9"},
        {"TRANSFER-ENCODING:", 15, kMsgTransferEncoding, "TRANSFER-ENCODING:"},
        // A multipart type needs a boundary of 1 to 70 bytes.
        {"Content-Type: multipart/related; type=text/xml", 12, kMsgBoundary, nullptr},
        {"Content-Type: multipart/x; boundary=\"\"", 12, kMsgBoundary, nullptr},
        {"Content-Type: MULTIPART/x; boundary", 12, kMsgBoundary, nullptr},
        {line71.c_str(), 12, kMsgBoundary, nullptr},
    };
    for (const Case& c : cases) {
        HeadFeed f(responseWith(std::string(c.line) + "\r\n"));
        TALVEXHTTPParser p;
        EXPECT_TRUE(raisesParserError([&] { p.parseResponse(f.stream()); }, c.code, c.message, kProcessHeader,
                                      c.shown ? c.shown : c.line))
            << c.line;
        EXPECT_EQ(0, p.isMultipart());
        EXPECT_EQ("", p.getBoundary());
    }
}

TEST(ParserHeaders, ErrorsKeepWhatWasStoredBefore) {
    HeadFeed f(responseWith("Content-Length: 5\r\nX-Before: 1\r\nContent-Type: multipart/related\r\nX-After: 2\r\n"));
    TALVEXHTTPParser p;
    EXPECT_TRUE(raisesParserError([&] { p.parseResponse(f.stream()); }, 12, kMsgBoundary, kProcessHeader,
                                  "Content-Type: multipart/related"));
    EXPECT_EQ(5, p.getContentLength());
    EXPECT_EQ(dumpOf(" 1"), header(p, "x-before"));
    EXPECT_EQ("multipart/related", p.getContentType());
    EXPECT_EQ(0, p.isMultipart());
    EXPECT_EQ("(absent)", header(p, "content-type")) << "the refused header itself is not stored";
    EXPECT_EQ("(absent)", header(p, "x-after"));
}

// Type, boundary and content id are kept as received; a boundary of 70 bytes is accepted.
TEST(ParserHeaders, MultipartInMixedCaseKeepsTypeBoundaryAndIdAsReceived) {
    const char* value = " Multipart/Related; type=\"text/xml\"; BOUNDARY=\"MiXeD=_Bound ary\"";
    HeadFeed f(responseWith(std::string("Content-Type:") + value + "\r\nContent-ID: <Env@Host>\r\n"));
    TALVEXHTTPParser p;
    p.parseResponse(f.stream());
    EXPECT_EQ(1, p.isMultipart());
    EXPECT_EQ("Multipart/Related", p.getContentType());
    EXPECT_EQ("MiXeD=_Bound ary", p.getBoundary());
    EXPECT_EQ(dumpOf(value), header(p, "content-type"));
    EXPECT_EQ("<Env@Host>", p.getContentId());

    const std::string b70(70, 'b');
    HeadFeed ok(responseWith("Content-Type: multipart/mixed; boundary=" + b70 + "\r\n"));
    p.parseResponse(ok.stream());
    EXPECT_EQ(1, p.isMultipart());
    EXPECT_EQ(b70, p.getBoundary());
}

TEST(ParserHeaders, ContentTypeThatIsNotMultipartLeavesFlagAndBoundaryAlone) {
    HeadFeed f(responseWith(
        "Content-Type: multipart/related; boundary=abc\r\nContent-Type: text/xml; boundary=zzz\r\n"
        "Content-Type: multipart; boundary=yyy\r\n"));
    TALVEXHTTPParser p;
    p.parseResponse(f.stream());
    EXPECT_EQ(1, p.isMultipart());
    EXPECT_EQ("abc", p.getBoundary());
    EXPECT_EQ("multipart", p.getContentType()) << "\"multipart\" without the slash is not a multipart type";
}

TEST(ParserHeaders, ChunkedInAnyCaseSetsTheFlagAndALaterOtherEncodingClearsIt) {
    HeadFeed upper(responseWith("Transfer-Encoding: CHUNKED\r\n"));
    TALVEXHTTPParser p;
    p.parseResponse(upper.stream());
    EXPECT_EQ(1, p.isChunked());

    HeadFeed cleared(responseWith("Transfer-Encoding: chunked\r\nTransfer-Encoding: gzip\r\n"));
    p.parseResponse(cleared.stream());
    EXPECT_EQ(0, p.isChunked());

    HeadFeed listed(responseWith("Transfer-Encoding: gzip, chunked\r\n"));
    p.parseResponse(listed.stream());
    EXPECT_EQ(0, p.isChunked()) << "only a value of exactly \"chunked\" counts";
}

TEST(ParserHeaders, NamesAreTrimmedAndLowerCasedAndLookupIsExact) {
    HeadFeed f(responseWith("X-Mixed-CASE \t:  some value \r\nHost: a:80\r\nX-Twice: 1\r\nx-twice: 2\r\n"));
    TALVEXHTTPParser p;
    p.parseResponse(f.stream());
    EXPECT_EQ(dumpOf("  some value"), header(p, "x-mixed-case"));
    EXPECT_EQ("(absent)", header(p, "X-Mixed-CASE"));
    EXPECT_EQ("(absent)", header(p, "x-mixed-case "));
    EXPECT_EQ(dumpOf(" a:80"), header(p, "host")) << "the name ends at the first colon";
    EXPECT_EQ(dumpOf(" 2"), header(p, "x-twice")) << "a repeated header keeps its last value";
}

TEST(ParserHeaders, LinesWithoutColonAreIgnoredAndContinuationsAreNotJoined) {
    HeadFeed f(responseWith("NoColonHere\r\nX-A: one\r\n  two\r\n\tfolded: three\r\nX-B: four\r\n"));
    TALVEXHTTPParser p;
    p.parseResponse(f.stream());
    EXPECT_EQ(dumpOf(" one"), header(p, "x-a"));
    EXPECT_EQ(dumpOf(" three"), header(p, "folded")) << "a folded line with a colon stands by itself";
    EXPECT_EQ(dumpOf(" four"), header(p, "x-b"));
    EXPECT_EQ("(absent)", header(p, "nocolonhere"));
    EXPECT_EQ("BODY", f.remaining());
}

// ---------------------------------------------------------------------- bounds

// Heads right at the bounds parse; a byte, a line or an interim response more
// is refused with code 6 naming the bound, and while it is read: without
// read-ahead, the parser has taken no more than the bounds of a far longer head.
TEST(ParserLimits, HeadsAtTheBoundsParseAndOneMoreIsRefusedWhileRead) {
    TALVEXLimits limits;
    limits.maxHeadLine = 64;
    limits.maxHeadLines = 4;
    limits.maxHeadSize = 256;
    limits.maxInterimResponses = 2;
    enum Entry { Request, Response, Part, Trailer };
    struct Row {
        Entry entry;
        std::string data;
        const char* function;  // null: the head parses
        std::string detail;
    };
    const std::string line64 = "X-A: " + std::string(57, 'a') + "\r\n";
    const std::string line65 = "X-A: " + std::string(58, 'a') + "\r\n";
    const std::string fourLines = "A: 1\r\nB: 2\r\nC: 3\r\nD: 4\r\n";
    const std::string status = "HTTP/1.1 200 OK\r\n";
    const std::string interim = "HTTP/1.1 100 Continue\r\n\r\n";
    const std::string endless(1 << 20, 'x');
    const std::string longLine = "head line longer than 64 bytes (max-head-line)";
    const std::string manyLines = "more header lines than 4 (max-head-lines)";
    const std::string bigHead = "head longer than 256 bytes (max-head-size)";
    const std::vector<Row> rows = {
        {Response, status + line64 + "\r\n", nullptr, ""},
        {Response, status + line65 + "\r\n", kProcessHeaders, longLine},
        {Response, "HTTP/1.1 200 " + endless, kParseResponse, longLine},
        {Request, "POST /" + endless, kParseRequest, longLine},
        {Part, "X-A: " + endless, kProcessHeaders, longLine},
        {Trailer, line65 + "\r\n", kProcessHeaders, longLine},
        {Response, status + fourLines + "\r\n", nullptr, ""},
        {Response, status + fourLines + "E: 5\r\n\r\n", kProcessHeaders, manyLines},
        {Part, fourLines + "E: 5\r\n\r\n", kProcessHeaders, manyLines},
        {Trailer, fourLines + "E: 5\r\n\r\n", kProcessHeaders, manyLines},
        {Response, status + line64 + line64 + line64 + "\r\n", nullptr, ""},
        {Response, status + line64 + line64 + line64 + line64 + "\r\n", kProcessHeaders, bigHead},
        {Response, std::string(300, '\n') + status + "\r\n", kParseResponse, bigHead},
        {Request, std::string(300, '\n') + "POST / HTTP/1.1\r\n\r\n", kParseRequest, bigHead},
        {Response, interim + "HTTP/1.1 103 Early Hints\r\n\r\n" + status + "\r\n", nullptr, ""},
        {Response, interim + interim + interim + status + "\r\n", kParseResponse,
         "more interim responses than 2 (max-interim-responses)"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.data.substr(0, 80));
        HeadFeed f(r.data, 0);
        TALVEXHTTPParser p(limits);
        const auto parse = [&] {
            switch (r.entry) {
                case Request: p.parseRequest(f.stream()); break;
                case Response: p.parseResponse(f.stream()); break;
                case Part: p.parsePartHeaders(f.stream()); break;
                case Trailer: p.skipTrailer(f.stream()); break;
            }
        };
        if (r.function == nullptr) {
            parse();
            EXPECT_EQ(r.data.size(), f.in.consumed());
        } else {
            EXPECT_TRUE(raisesParserError(parse, 6, kMsgHeadIncomplete, r.function, r.detail.c_str()));
            EXPECT_LE(f.in.consumed(), limits.maxHeadSize + 3 * interim.size());
        }
    }
}

// A byte buffer that cannot grow throws std::bad_alloc: it leaves the parser
// as the core library's out-of-memory error.
TEST(ParserLimits, AFailedAllocationLeavesAsTheCoreOutOfMemoryError) {
    struct NoMemory : PNXBufferedInputStream {
        NoMemory() : PNXBufferedInputStream(0) {}
        using PNXBufferedInputStream::readline;
        unsigned readline(MOXByteBuffer&, unsigned) override { throw std::bad_alloc(); }
    } is;
    TALVEXHTTPParser p;
    EXPECT_THROW(p.parseResponse(&is), MOXOutOfMemoryError);
    EXPECT_THROW(p.parsePartHeaders(&is), MOXOutOfMemoryError);
    EXPECT_THROW(p.skipTrailer(&is), MOXOutOfMemoryError);
}

// ---------------------------------------------------- reuse and part headers

TEST(ParserParts, EachPartStartsFromNothing) {
    HeadFeed f(
        "Content-Type: multipart/related; boundary=inner\r\nContent-ID: <env>\r\nContent-Length: 10\r\n"
        "Transfer-Encoding: chunked\r\nContent-Transfer-Encoding: 8bit\r\n\r\n"
        "Content-Description: attachment\r\n\r\nDATA");
    TALVEXHTTPParser p;
    p.parsePartHeaders(f.stream());
    EXPECT_EQ(1, p.isMultipart());
    EXPECT_EQ("<env>", p.getContentId());
    EXPECT_EQ(dumpOf(" 8bit"), header(p, "content-transfer-encoding"));

    p.parsePartHeaders(f.stream());
    EXPECT_EQ("(absent)", header(p, "content-transfer-encoding"));
    EXPECT_EQ("(absent)", header(p, "content-type"));
    EXPECT_EQ(dumpOf(" attachment"), header(p, "content-description"));
    EXPECT_EQ("", p.getContentId());
    EXPECT_EQ("", p.getContentType());
    EXPECT_EQ("", p.getBoundary());
    EXPECT_EQ(0, p.isMultipart());
    EXPECT_EQ(0, p.getContentLength());
    EXPECT_EQ(0, p.isChunked());
    EXPECT_EQ("DATA", f.remaining());
}

TEST(ParserParts, PartHeadersForgetAnEarlierStartLineAndAnEmptyBlockGivesNothing) {
    HeadFeed f("HTTP/1.1 200 OK\r\nX-A: 1\r\n\r\n\r\nrest");
    TALVEXHTTPParser p;
    p.parseResponse(f.stream());
    p.parsePartHeaders(f.stream());
    EXPECT_EQ("(absent)", header(p, "talvex-status-code"));
    EXPECT_EQ("(absent)", header(p, "x-a"));
    EXPECT_EQ("rest", f.remaining());
}

TEST(ParserParts, PartHeaderBlockCutOffOnABufferedStreamGivesCode6) {
    HeadFeed f("Content-ID: <a>\r\n");
    TALVEXHTTPParser p;
    EXPECT_TRUE(raisesParserError([&] { p.parsePartHeaders(f.stream()); }, 6, kMsgHeadIncomplete, kProcessHeaders,
                                  nullptr));
    EXPECT_EQ("<a>", p.getContentId());
}

TEST(ParserParts, APartEndingBeforeItsEmptyLineEndsTheBlockWithoutError) {
    // The multipart stream reports the end of a part with 0, not with the end-of-data mark.
    PartStream part("Content-ID: <a>\r\nX-Last: unterminated");
    TALVEXHTTPParser p;
    p.parsePartHeaders(&part);
    EXPECT_EQ("<a>", p.getContentId());
    EXPECT_EQ(dumpOf(" unterminated"), header(p, "x-last"));
    EXPECT_EQ(-1, part.read());
}

TEST(ParserReuse, AMessageHeadResetsTheNumbersButKeepsTheTexts) {
    HeadFeed f(
        "Content-ID: <x>\r\nContent-Length: 3\r\nTransfer-Encoding: chunked\r\n"
        "Content-Type: multipart/a; boundary=b\r\n\r\nHTTP/1.1 200 OK\r\n\r\n");
    TALVEXHTTPParser p;
    p.parsePartHeaders(f.stream());
    p.parseResponse(f.stream());
    EXPECT_EQ(0, p.getContentLength());
    EXPECT_EQ(0, p.isChunked());
    EXPECT_EQ(0, p.isMultipart());
    EXPECT_EQ("<x>", p.getContentId());
    EXPECT_EQ("b", p.getBoundary());
    EXPECT_EQ(dumpOf(" <x>"), header(p, "content-id"));
}

// ---------------------------------------------------------------- makePrintable

TEST(MakePrintable, BytesOutsideSpaceToTildeBecomeQuestionMarks) {
    EXPECT_EQ("? ~?a??", makePrintable("\x1f ~\x7f" "a\x80\xff"));
    EXPECT_EQ("", makePrintable(""));
    EXPECT_TRUE(raisesAssertion([] { makePrintable(nullptr); }, "MOX_ASSERT(NULL != pString);"));
}

// A value with parameters seen again (the same Content-Type on every response)
// is taken from the last one taken apart; what the parser keeps must be what a
// first parse gives, also when the next value differs in one parameter only.
TEST(ParserHeaders, RepeatedValuesWithParametersGiveTheSameResult) {
    const std::string a = "Content-Type: Multipart/Related; type=\"text/xml\"; boundary=\"=_=a=_=\"\r\n";
    const std::string b = "Content-Type: Multipart/Related; type=\"text/xml\"; boundary=\"=_=b=_=\"\r\n";
    for (const std::string* line : {&a, &a, &b, &a}) {
        HeadFeed f(responseWith(*line));
        TALVEXHTTPParser p;
        p.parseResponse(f.stream());
        EXPECT_EQ(1, p.isMultipart());
        EXPECT_EQ(line == &a ? "=_=a=_=" : "=_=b=_=", p.getBoundary());
        EXPECT_EQ("Multipart/Related", p.getContentType());
        EXPECT_EQ(line == &a ? "Multipart/Related; type=\"text/xml\"; boundary=\"=_=a=_=\""
                             : "Multipart/Related; type=\"text/xml\"; boundary=\"=_=b=_=\"",
                  header(p, "content-type"));
    }
    // The same value without its boundary is refused, before and after a good one.
    const std::string none = "Content-Type: Multipart/Related; type=\"text/xml\"\r\n";
    for (const std::string* line : {&none, &a, &none}) {
        HeadFeed f(responseWith(*line));
        TALVEXHTTPParser p;
        if (line == &none) {
            EXPECT_TRUE(raisesParserError([&] { p.parseResponse(f.stream()); }, 12, kMsgBoundary, kProcessHeader,
                                          "Content-Type: Multipart/Related; type=\"text/xml\""));
        } else {
            p.parseResponse(f.stream());
            EXPECT_EQ("=_=a=_=", p.getBoundary());
        }
    }
}
