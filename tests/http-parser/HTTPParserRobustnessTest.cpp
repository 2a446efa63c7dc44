// Malformed heads from a fixed-seed generator: whatever arrives, a parse ends
// either with a record or with one of the parser's own errors (codes 6 to 15,
// raised at TALVEXHTTPParser) - never a crash, a hang or another throwable -
// and a successful parse has stopped right after an empty line.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "HeadFeed.h"
#include "http/TALVEXHTTPParser.h"
#include "moxcore/MOXByteBuffer.h"
#include "talvex/TALVEXException.h"

namespace {

enum class Entry { Request, Response, Part };

const char* const kSeeds[] = {
    "POST /svc HTTP/1.1\r\nHost: h\r\nContent-Type: multipart/related; boundary=\"b1\"\r\nContent-Length: 12\r\n\r\n",
    "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\nContent-ID: <x>\r\n\r\n",
    "HTTP/1.0 500 Internal Error\r\nContent-Type: text/xml; charset=utf-8\r\n\r\n",
    "Content-Type: text/xml\r\nContent-Transfer-Encoding: quoted-printable\r\nContent-ID: <a@b>\r\n\r\n",
    "\r\n\nPOST / HTTP/1.0\r\nTransfer-Encoding: gzip\r\nX: y\r\n\r\n",
    "HTTP/1.1 200\r\nContent-Length: 3\r\n\r\n",
    "POST /a HTTP/1.1\r\n\r\n",
};
const size_t kSeedCount = sizeof(kSeeds) / sizeof(kSeeds[0]);

std::string mutate(std::string s, std::mt19937& rng) {
    auto pick = [&rng](size_t n) { return n == 0 ? size_t(0) : std::uniform_int_distribution<size_t>(0, n - 1)(rng); };
    const int rounds = 1 + static_cast<int>(pick(4));
    for (int r = 0; r < rounds; ++r) {
        switch (pick(11)) {
            case 10:  // cut the start line after its first word
            {
                const size_t word = s.find_first_not_of("\r\n");
                const size_t gap = word == std::string::npos ? word : s.find_first_of(" \t", word);
                const size_t end = gap == std::string::npos ? gap : s.find('\n', gap);
                if (end != std::string::npos) s.erase(gap, end - gap);
                break;
            }
            case 0:  // truncate
                s.resize(pick(s.size() + 1));
                break;
            case 1:  // random binary byte, NUL included
                if (!s.empty()) s[pick(s.size())] = static_cast<char>(pick(256));
                break;
            case 2:  // insert a burst of binary bytes
                s.insert(pick(s.size() + 1), std::string(1 + pick(8), static_cast<char>(pick(256))));
                break;
            case 3:  // stray CR
                s.insert(pick(s.size() + 1), "\r");
                break;
            case 4:  // drop a colon
            {
                const size_t at = s.find(':', pick(s.size() + 1));
                if (at != std::string::npos) s.erase(at, 1);
                break;
            }
            case 5:  // overlong line
                s.insert(pick(s.size() + 1), std::string(20000 + pick(50000), 'L'));
                break;
            case 6:  // delete a stretch
            {
                const size_t at = pick(s.size() + 1);
                s.erase(at, pick(12));
                break;
            }
            case 7:  // an empty framing header or an odd content type
            {
                static const char* const lines[] = {"Content-Type:\r\n", "Content-ID:\r\n", "Content-Length:\r\n",
                                                    "Transfer-Encoding:\r\n", "Content-Type: multipart/x\r\n",
                                                    "Content-Type: multipart/x; boundary=\"\"\r\n"};
                const size_t at = s.find("\r\n");
                if (at != std::string::npos) s.insert(at + 2, lines[pick(6)]);
                break;
            }
            case 8:  // duplicate a stretch
            {
                const size_t at = pick(s.size() + 1);
                s.insert(at, s.substr(at, pick(40)));
                break;
            }
            default:  // change a letter of the start line
                if (!s.empty()) s[pick(std::min<size_t>(s.size(), 16))] = static_cast<char>('A' + pick(26));
                break;
        }
    }
    return s;
}

// After a successful parse without read-ahead, the bytes taken must end with
// an empty line: nothing beyond the head was read.
bool endsWithEmptyLine(const std::string& consumed) {
    if (consumed.empty() || consumed.back() != '\n') return false;
    const size_t start = consumed.find_last_of('\n', consumed.size() - 2);
    MOXByteBuffer last;
    const size_t from = start == std::string::npos ? 0 : start + 1;
    last.appendChars(consumed.data() + from, static_cast<unsigned>(consumed.size() - from));
    return last.trim() == 0;
}

}  // namespace

TEST(ParserRobustness, MalformedHeadsEndInARecordOrInTheParsersOwnErrors) {
    std::mt19937 rng(20240611u);
    int parsed = 0, refused = 0;
    int byCode[16] = {};
    for (int i = 0; i < 3000; ++i) {
        // Seeds and entry points vary independently, so every seed meets every entry.
        const std::string data = mutate(kSeeds[i % kSeedCount], rng);
        const Entry entry = static_cast<Entry>((i / kSeedCount) % 3);
        const int sizes[] = {0, 1, 7, 1024};
        const int size = sizes[(i / 3) % 4];
        HeadFeed f(data + "\x01" "BODY", size, static_cast<unsigned>(1 + i % 5));
        TALVEXHTTPParser p;
        try {
            switch (entry) {
                case Entry::Request: p.parseRequest(f.stream()); break;
                case Entry::Response: p.parseResponse(f.stream()); break;
                case Entry::Part: p.parsePartHeaders(f.stream()); break;
            }
            ++parsed;
            if (size == 0) {
                EXPECT_TRUE(endsWithEmptyLine((data + "\x01" "BODY").substr(0, f.in.consumed())))
                    << "case " << i << ": " << ::testing::PrintToString(data);
            }
        } catch (TALVEXException& e) {
            ++refused;
            ASSERT_GE(e.getCode(), 6) << "case " << i;
            ASSERT_LE(e.getCode(), 15) << "case " << i;
            ++byCode[e.getCode()];
            ASSERT_FALSE(e.getBackTrace().empty());
            EXPECT_EQ("TALVEXHTTPParser", e.getBackTrace()[0].unit) << "case " << i;
        } catch (MOXThrowable& t) {
            FAIL() << "case " << i << " raised " << t.getThrowableName() << ": " << t.toString().str();
        } catch (...) {
            FAIL() << "case " << i << " raised a foreign exception";
        }
    }
    // The generator must reach both outcomes and a good spread of errors, or it tests little.
    EXPECT_GT(parsed, 100);
    EXPECT_GT(refused, 100);
    for (int code : {6, 7, 8, 9, 10, 11, 12, 13, 14, 15}) EXPECT_GT(byCode[code], 0) << "code " << code << " never seen";
}
