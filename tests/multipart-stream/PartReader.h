#ifndef TALVEX_TESTS_PARTREADER_H
#define TALVEX_TESTS_PARTREADER_H

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "mime/TALVEXMPInputStream.h"
#include "moxcore/MOXByteBuffer.h"

// Takes a multipart stream apart the way the attachment reader does: header
// lines with readline up to the empty line, then the data, read with a random
// mix of read(), read(char*, n), read(MOXByteBuffer&, n) and readline. Each
// part comes back as text: "H name\tvalue" lines, then "B " and the data in
// hexadecimal, the same form the email package comparison prints.
class PartReader {
public:
    explicit PartReader(unsigned seed) : m_rng(seed) {}

    std::vector<std::string> readAll(TALVEXMPInputStream& mp) {
        std::vector<std::string> parts;
        while (mp.hasNextPart()) {
            EXPECT_EQ(1, mp.hasNextPart()) << "hasNextPart must not consume the delimiter";
            mp.nextPart();
            std::string text = readHeaders(mp);
            text += "B " + hex(readData(mp)) + "\n";
            parts.push_back(text);
        }
        return parts;
    }

    static std::string hex(const std::string& bytes) {
        static const char kDigits[] = "0123456789abcdef";
        std::string h;
        for (unsigned char c : bytes) {
            h += kDigits[c >> 4];
            h += kDigits[c & 15];
        }
        return h;
    }

private:
    std::string readHeaders(TALVEXMPInputStream& mp) {
        std::string text;
        MOXByteBuffer line(64, 64);
        for (;;) {
            line.reset();
            const unsigned r = mp.readline(line);
            const std::string s(line.str(), line.pcount());
            if (s == "\r\n") break;
            if (s.size() >= 2 && s.compare(s.size() - 2, 2, "\r\n") == 0) {
                EXPECT_NE(0u, r) << "a line that ended must say so";
            } else {
                EXPECT_EQ(0u, r) << "an unterminated line means the part ended";
            }
            if (s.empty()) break;
            const size_t colon = s.find(':');
            const size_t value = s.find_first_not_of(" \t", colon + 1);
            const size_t end = s.find_last_not_of("\r\n");
            text += "H " + s.substr(0, colon) + "\t" + s.substr(value, end + 1 - value) + "\n";
            if (r == 0) break;
        }
        return text;
    }

    std::string readData(TALVEXMPInputStream& mp) {
        std::string data;
        char buf[2048];
        MOXByteBuffer b(16, 16);
        for (;;) {
            switch (std::uniform_int_distribution<int>(0, 3)(m_rng)) {
                case 0: {
                    const int c = mp.read();
                    if (c == -1) return finish(mp, data);
                    EXPECT_TRUE(c >= 0 && c <= 255);
                    data += static_cast<char>(c);
                    break;
                }
                case 1: {
                    const unsigned n = std::uniform_int_distribution<unsigned>(1, sizeof buf)(m_rng);
                    const unsigned r = mp.read(buf, n);
                    if (r == PNX_EOF) return finish(mp, data);
                    EXPECT_TRUE(r >= 1 && r <= n) << r << " for " << n;
                    data.append(buf, r);
                    break;
                }
                case 2: {
                    const unsigned n = std::uniform_int_distribution<unsigned>(1, 1500)(m_rng);
                    b.reset();
                    b << 'x';  // the byte-buffer read appends
                    const unsigned r = mp.read(b, n);
                    if (r == PNX_EOF) {
                        EXPECT_EQ(1u, b.pcount());
                        return finish(mp, data);
                    }
                    EXPECT_TRUE(r >= 1 && r <= n) << r << " for " << n;
                    EXPECT_EQ(r + 1, b.pcount());
                    data.append(b.str() + 1, r);
                    break;
                }
                default: {
                    b.reset();
                    const unsigned r = mp.readline(b);
                    data.append(b.str(), b.pcount());
                    if (r == 0) return finish(mp, data);
                    EXPECT_EQ(0, std::string(b.str() + b.pcount() - 2, 2).compare("\r\n"));
                }
            }
        }
    }

    // After the end of a part every read answers the end.
    static std::string& finish(TALVEXMPInputStream& mp, std::string& data) {
        char c;
        MOXByteBuffer b(16, 16);
        EXPECT_EQ(-1, mp.read());
        EXPECT_EQ(PNX_EOF, mp.read(&c, 1));
        EXPECT_EQ(PNX_EOF, mp.read(b, 10));
        EXPECT_EQ(0u, mp.readline(b));
        EXPECT_EQ(0u, b.pcount());
        return data;
    }

    std::mt19937 m_rng;
};

#endif
