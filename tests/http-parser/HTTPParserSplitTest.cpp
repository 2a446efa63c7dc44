// Where the bytes of a head are split between reads must not matter: every
// valid head is parsed once whole, then again split at every offset, one byte
// per inner read, and behind buffers of many sizes; each run must give the same
// record and leave the stream at the first body byte.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "HeadFeed.h"
#include "http/TALVEXHTTPParser.h"

namespace {

enum class Entry { Request, Response, Part };

struct HeadCase {
    const char* name;
    Entry entry;
    std::string head;
    std::string body;
    std::vector<std::string> keys;  // map keys to compare, present or not
};

struct Record {
    int multipart;
    int chunked;
    int length;
    std::string id;
    std::string type;
    std::string boundary;
    std::vector<std::string> values;

    bool operator==(const Record& o) const {
        return multipart == o.multipart && chunked == o.chunked && length == o.length && id == o.id &&
               type == o.type && boundary == o.boundary && values == o.values;
    }
};

void PrintTo(const Record& r, std::ostream* os) {
    *os << "{mp " << r.multipart << ", ch " << r.chunked << ", len " << r.length << ", id " << r.id << ", type "
        << r.type << ", boundary " << r.boundary << ", values";
    for (const std::string& v : r.values) *os << " [" << v << "]";
    *os << "}";
}

void run(TALVEXHTTPParser& p, Entry entry, PNXBufferedInputStream* is) {
    switch (entry) {
        case Entry::Request: p.parseRequest(is); break;
        case Entry::Response: p.parseResponse(is); break;
        case Entry::Part: p.parsePartHeaders(is); break;
    }
}

Record recordOf(const TALVEXHTTPParser& p, const std::vector<std::string>& keys) {
    Record r{p.isMultipart(), p.isChunked(), p.getContentLength(), p.getContentId(), p.getContentType(),
             p.getBoundary(), {}};
    for (const std::string& k : keys) {
        const char* v = p.getHeader(k.c_str());
        r.values.push_back(v != nullptr ? "=" + std::string(v) : "(absent)");
    }
    return r;
}

const std::vector<std::string> kStartKeys = {"talvex-http-version", "talvex-uri", "talvex-status-code",
                                             "talvex-reason-phrase"};

std::vector<std::string> withStartKeys(std::vector<std::string> keys) {
    keys.insert(keys.end(), kStartKeys.begin(), kStartKeys.end());
    return keys;
}

std::vector<HeadCase> validHeads() {
    return {
        {"request", Entry::Request,
         "\r\n\nPOST /svc?q=1 HTTP/1.1\r\nHost: example.org:8080\r\n"
         "Content-Type: multipart/related; type=\"text/xml\"; boundary=\"=_B_=\"\r\n"
         "Content-Length: 321\r\nSOAPAction: \"urn:x#y\"\r\nX-Empty:\r\nno colon\r\n\r\n",
         "--=_B_=\r\nContent-ID: <e>\r\n\r\n<env/>\r\n--=_B_=--\r\n",
         withStartKeys({"host", "content-type", "content-length", "soapaction", "x-empty", "no colon"})},
        {"interim-then-chunked-response", Entry::Response,
         "HTTP/1.1 100 Continue\r\nX-I: 1\r\n\r\n\r\nHTTP/1.1 200 OK\nTransfer-Encoding: Chunked\r\n"
         "Content-ID: <a>\r\nX-Bare-LF: yes\n\r\n",
         "4\r\nBODY\r\n0\r\n\r\n", withStartKeys({"x-i", "transfer-encoding", "content-id", "x-bare-lf"})},
        {"body-opening-with-a-line-end", Entry::Response, "HTTP/1.0 204\r\n\r\n", "\r\nX",
         withStartKeys({})},
        {"request-body-opening-with-lf", Entry::Request, "POST / HTTP/1.0\r\nContent-Length: 2\r\n\r\n", "\nZ",
         withStartKeys({"content-length"})},
        {"part", Entry::Part,
         "Content-Type: text/xml; charset=utf-8\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n", "<env/>",
         withStartKeys({"content-type", "content-transfer-encoding"})},
    };
}

// Parses the case from the given feed and checks record, position and body.
void expectSame(const HeadCase& c, const Record& reference, HeadFeed& feed, const std::string& how, bool exact) {
    TALVEXHTTPParser p;
    run(p, c.entry, feed.stream());
    EXPECT_EQ(reference, recordOf(p, c.keys)) << c.name << ", " << how;
    if (exact) {
        // Without read-ahead the inner stream shows exactly how far the parser read.
        EXPECT_EQ(c.head.size(), feed.in.consumed()) << c.name << ", " << how;
    }
    EXPECT_EQ(c.body, feed.remaining()) << c.name << ", " << how;
}

}  // namespace

TEST(ParserSplit, EveryValidHeadGivesTheSameRecordHoweverItsBytesArrive) {
    for (const HeadCase& c : validHeads()) {
        const std::string data = c.head + c.body;
        HeadFeed whole(data);
        TALVEXHTTPParser ref;
        run(ref, c.entry, whole.stream());
        const Record reference = recordOf(ref, c.keys);
        ASSERT_EQ(c.body, whole.remaining()) << c.name;

        for (int size : {0, 1, 2, 3, 4, 7, 16, 64, 1024}) {
            HeadFeed f(data, size);
            expectSame(c, reference, f, "buffer " + std::to_string(size), size == 0);
        }
        // Every read of the inner stream cut to k bytes: split at k, 2k, ...
        for (unsigned k = 1; k <= data.size(); ++k) {
            for (int size : {5, 1024}) {
                HeadFeed f(data, size, k);
                expectSame(c, reference, f, "reads of " + std::to_string(k) + ", buffer " + std::to_string(size),
                           false);
            }
        }
        for (int size : {0, 3}) {
            HeadFeed f(data, size, 1);
            expectSame(c, reference, f, "one byte per read, buffer " + std::to_string(size), size == 0);
        }
    }
}

TEST(ParserSplit, RecordsOfTheReferenceParsesAreTheExpectedOnes) {
    // Guards the comparisons above against a reference that is wrong in the same way everywhere.
    const std::vector<HeadCase> heads = validHeads();
    TALVEXHTTPParser request;
    HeadFeed r(heads[0].head + heads[0].body);
    request.parseRequest(r.stream());
    EXPECT_STREQ("/svc?q=1", request.getHeader("talvex-uri"));
    EXPECT_EQ(1, request.isMultipart());
    EXPECT_EQ("=_B_=", request.getBoundary());
    EXPECT_EQ(321, request.getContentLength());
    EXPECT_EQ(nullptr, request.getHeader("no colon"));

    TALVEXHTTPParser response;
    HeadFeed s(heads[1].head + heads[1].body);
    response.parseResponse(s.stream());
    EXPECT_STREQ("200", response.getHeader("talvex-status-code"));
    EXPECT_STREQ("OK", response.getHeader("talvex-reason-phrase"));
    EXPECT_EQ(1, response.isChunked());
    EXPECT_EQ("<a>", response.getContentId());
    EXPECT_EQ(nullptr, response.getHeader("x-i"));
    EXPECT_STREQ("yes", response.getHeader("x-bare-lf"));
}
