// Corpora encoded by Python's quopri module must decode to the original bytes,
// with every line end the encoder kept as a line end coming out as CR LF,
// whichever way the decoded bytes are read.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "ScriptedInputStream.h"
#include "mime/TALVEXMPInputStream.h"
#include "mime/TALVEXQPInputStream.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXThrowable.h"

namespace {

unsigned pick(std::mt19937& rng, unsigned max) { return std::uniform_int_distribution<unsigned>(0, max)(rng); }

struct Corpus {
    std::string name;
    std::string data;
    bool lone_cr;     // a CR not followed by LF: the binascii encoder leaves it bare
    bool long_lines;  // lines over 25 bytes: quopri's own encoder may then split an
                      // escape with a soft break ("=\nE7"), which is not quoted-printable
};

std::vector<Corpus> makeCorpora() {
    std::mt19937 rng(8080);
    std::vector<Corpus> corpora;
    auto add = [&corpora](const std::string& name, const std::string& data) {
        bool loneCr = false;
        bool longLines = false;
        size_t lineStart = 0;
        for (size_t i = 0; i <= data.size(); ++i) {
            if (i < data.size() && data[i] == '\r' && (i + 1 == data.size() || data[i + 1] != '\n')) loneCr = true;
            if (i == data.size() || data[i] == '\n') {
                if (i - lineStart > 25) longLines = true;
                lineStart = i + 1;
            }
        }
        corpora.push_back({name, data, loneCr, longLines});
    };
    auto randomBytes = [&rng](unsigned n) {
        std::string d;
        for (unsigned k = 0; k < n; ++k) d += static_cast<char>(pick(rng, 255));
        return d;
    };
    add("empty", "");
    add("blank-lines", " \n\t\n \t \r\n\n  ");
    add("equals", "==\n=3D=\r\n= \n=");
    for (int i = 0; i < 10; ++i) {  // every byte value, long lines, CR only before LF
        std::string d;
        for (char c : randomBytes(pick(rng, 5000))) {
            d += c;
            if (c == '\r') d += '\n';
        }
        add("binary-crlf" + std::to_string(i), d);
    }
    for (int i = 0; i < 10; ++i) {  // every byte value, lone CRs, short lines
        std::string d;
        const unsigned lines = pick(rng, 150);
        for (unsigned l = 0; l < lines; ++l) {
            for (char c : randomBytes(pick(rng, 25)))
                if (c != '\n') d += c;
            d += '\n';
        }
        if (i % 2) d += randomBytes(pick(rng, 20));  // sometimes no line end at the end
        add("binary-short" + std::to_string(i), d);
    }
    for (int i = 0; i < 12; ++i) {  // text: words, blanks at line ends, "=", CR LF or LF
        std::string d;
        const bool crlf = i % 2 == 0;
        const unsigned lines = pick(rng, 200);
        for (unsigned l = 0; l < lines; ++l) {
            const unsigned words = pick(rng, i < 6 ? 3 : 25);
            for (unsigned w = 0; w < words; ++w) {
                const unsigned len = 1 + pick(rng, i < 6 ? 4 : 12);
                for (unsigned k = 0; k < len; ++k) {
                    const unsigned r = pick(rng, 40);
                    d += r == 0 ? '=' : r == 1 ? '\t' : r == 2 ? static_cast<char>(0xC3) : static_cast<char>('a' + pick(rng, 25));
                }
                d += pick(rng, 5) == 0 ? "\t" : " ";
            }
            if (pick(rng, 3) == 0) d += "  ";
            d += crlf ? "\r\n" : "\n";
        }
        add("text" + std::to_string(i), d);
    }
    for (int i = 0; i < 6; ++i) {  // long lines
        std::string d;
        for (int l = 0; l < 4; ++l) {
            const unsigned len = 200 + pick(rng, 3000);
            for (unsigned k = 0; k < len; ++k) {
                const char c = static_cast<char>(i % 2 ? pick(rng, 255) : 0x20 + pick(rng, 0x5E));
                d += c;
                if (c == '\r') d += '\n';
            }
            d += '\n';
        }
        add("long" + std::to_string(i), d);
    }
    return corpora;
}

// What the decoder must give for an encoding whose line ends are the data's
// LFs (quopri's own encoder escapes every CR).
std::string lfToCrLf(const std::string& data) {
    std::string out;
    for (char c : data) {
        if (c == '\n') out += '\r';
        out += c;
    }
    return out;
}

// The binascii encoder writes the data's CR LF and LF alike as line ends.
std::string lineEndsToCrLf(const std::string& data) {
    std::string lf;
    for (size_t i = 0; i < data.size(); ++i)
        if (!(data[i] == '\r' && i + 1 < data.size() && data[i + 1] == '\n')) lf += data[i];
    return lfToCrLf(lf);
}

std::string readFile(const std::string& path) {
    std::ifstream f(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

// One way of reading all decoded bytes; `way` picks the operation.
std::string decodeAll(const std::string& encoded, int way) {
    ScriptedInputStream in(encoded);
    TALVEXQPInputStream qp(&in);
    std::string out;
    static const unsigned kSizes[] = {1, 2, 3, 7, 76, 1000};
    char buf[1000];
    MOXByteBuffer b(16, 16);
    if (way == 0) {
        for (int c; (c = qp.read()) != -1;) out += static_cast<char>(c);
    } else if (way <= 6) {
        const unsigned n = kSizes[way - 1];
        for (unsigned r; (r = qp.read(buf, n)) != PNX_EOF;) {
            EXPECT_TRUE(r >= 1 && r <= n);
            // A read ends at the end of a decoded line at the latest.
            const size_t crlf = std::string(buf, r).find("\r\n");
            EXPECT_TRUE(crlf == std::string::npos || crlf + 2 == r) << "a read spanned two lines";
            out.append(buf, r);
        }
    } else if (way <= 8) {
        const unsigned n = way == 7 ? 5 : 4096;
        for (unsigned r; (r = qp.read(b, n)) != PNX_EOF;) {
            EXPECT_EQ(r, b.pcount());
            out.append(b.str(), r);
        }
    } else {
        for (unsigned r; (r = qp.readline(b)) != PNX_EOF;) {
            const std::string line(b.str(), b.pcount());
            EXPECT_EQ(line.size(), r);
            const size_t crlf = line.find("\r\n");
            EXPECT_TRUE(crlf == std::string::npos || crlf + 2 == line.size()) << "readline gave two lines";
            out += line;
        }
    }
    return out;
}

}  // namespace

TEST(QPCorpus, QuopriEncodingsDecodeToTheOriginal) {
    char dirTemplate[] = "/tmp/talvex-qp-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dirTemplate));
    const std::string dir = dirTemplate;
    const std::vector<Corpus> corpora = makeCorpora();
    static const char* const kVariants[] = {"b2a", "b2a-tabs", "py", "py-tabs", "py-crlf"};

    std::string command = "python3 " TALVEX_TEST_SOURCE_DIR "/tests/quoted-printable/qp_encode.py";
    for (const Corpus& c : corpora) {
        std::ofstream(dir + "/" + c.name, std::ios::binary) << c.data;
        command += " " + dir + "/" + c.name;
    }
    const int status = std::system(command.c_str());
    std::vector<std::pair<std::string, std::string>> encodings;  // (name, encoded)
    for (const Corpus& c : corpora) {
        for (const char* v : kVariants) {
            const std::string path = dir + "/" + c.name + "." + v;
            encodings.emplace_back(c.name + "." + v, readFile(path));
            std::remove(path.c_str());
        }
        std::remove((dir + "/" + c.name).c_str());
    }
    rmdir(dir.c_str());
    ASSERT_EQ(0, status) << "python3 with the quopri module is needed";

    unsigned checked = 0;
    unsigned binasciiChecked = 0;
    unsigned ownChecked = 0;
    size_t e = 0;
    for (const Corpus& c : corpora) {
        for (const char* v : kVariants) {
            const std::string& encoded = encodings[e++].second;
            const bool binascii = std::string(v).rfind("b2a", 0) == 0;
            if (binascii ? c.lone_cr : c.long_lines) continue;
            const std::string expected = binascii ? lineEndsToCrLf(c.data) : lfToCrLf(c.data);
            if (!c.data.empty()) {
                ASSERT_FALSE(encoded.empty()) << c.name << "." << v;
            }
            for (int way = 0; way <= 9; ++way) {
                std::string decoded;
                try {
                    decoded = decodeAll(encoded, way);
                } catch (MOXThrowable& t) {
                    FAIL() << c.name << "." << v << " read way " << way << ": " << t.toString().str();
                }
                ASSERT_EQ(expected, decoded) << c.name << "." << v << " read way " << way;
                ++checked;
            }
            ++(binascii ? binasciiChecked : ownChecked);
        }
    }
    EXPECT_GT(checked, 1000u);
    EXPECT_GE(binasciiChecked, 50u);
    EXPECT_GE(ownChecked, 40u);
}

TEST(QPCorpus, QuotedPrintablePartsOfAMultipartBody) {
    // "=_" never occurs in quoted-printable text, so it makes a safe boundary.
    const std::string boundary = "=_qp_parts_=";
    std::mt19937 rng(31);
    std::vector<std::string> originals;
    std::string body;
    for (int i = 0; i < 20; ++i) {
        std::string data;
        const unsigned n = pick(rng, 3000);
        for (unsigned k = 0; k < n; ++k) data += static_cast<char>(pick(rng, 255));
        originals.push_back(data);
        // A hand-made encoding: every byte escaped, soft breaks every 24 bytes.
        static const char kHex[] = "0123456789ABCDEF";
        std::string encoded;
        for (unsigned k = 0; k < n; ++k) {
            const unsigned char c = static_cast<unsigned char>(data[k]);
            encoded += '=';
            encoded += kHex[c >> 4];
            encoded += kHex[c & 15];
            if (k % 8 == 7) encoded += "=\r\n";
        }
        body += "--" + boundary + "\r\nContent-Transfer-Encoding: quoted-printable\r\n\r\n" + encoded + "\r\n";
    }
    body += "--" + boundary + "--\r\n";
    ScriptedInputStream in(body, {1, 700, 3, 1024});
    in.unread("\r\n", 2);
    TALVEXMPInputStream mp(&in, boundary);
    MOXByteBuffer line(64, 64);
    for (const std::string& original : originals) {
        ASSERT_EQ(1, mp.hasNextPart());
        mp.nextPart();
        do line.reset();
        while (mp.readline(line) != 0 && line.trim() != 0);
        TALVEXQPInputStream qp(&mp);
        std::string out;
        char buf[100];
        for (unsigned r; (r = qp.read(buf, sizeof buf)) != PNX_EOF;) out.append(buf, r);
        ASSERT_EQ(original, out);
    }
    EXPECT_EQ(0, mp.hasNextPart());
}
