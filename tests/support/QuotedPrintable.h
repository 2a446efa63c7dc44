#ifndef TALVEX_TESTS_QUOTEDPRINTABLE_H
#define TALVEX_TESTS_QUOTEDPRINTABLE_H

// A quoted-printable encoder for tests: produces the content of a part sent as
// "text/vornatk-pre-encoded-quoted-printable", which the toolkit's reader
// decodes back to the original bytes.

#include <string>

// CR LF pairs become hard line breaks; every other CR or LF is escaped, since
// the decoder turns any hard line end into CR LF. Encoded lines stay within
// 76 characters through soft line breaks, and a blank or tab that would end an
// encoded line is escaped so that no transport can strip it.
inline std::string encodeQuotedPrintable(const std::string& data) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    std::string line;
    auto flushSoft = [&] {
        out += line;
        out += "=\r\n";
        line.clear();
    };
    auto put = [&](const std::string& token) {
        if (line.size() + token.size() > 75) flushSoft();
        line += token;
    };
    for (size_t i = 0; i < data.size(); ++i) {
        const unsigned char c = static_cast<unsigned char>(data[i]);
        if (c == '\r' && i + 1 < data.size() && data[i + 1] == '\n') {
            out += line;
            out += "\r\n";
            line.clear();
            ++i;
            continue;
        }
        const bool lineEndsNext = i + 1 == data.size() || (data[i + 1] == '\r' && i + 2 < data.size() && data[i + 2] == '\n');
        const bool literal = (c >= 33 && c <= 126 && c != '=') || ((c == ' ' || c == '\t') && !lineEndsNext);
        if (literal) {
            put(std::string(1, static_cast<char>(c)));
        } else {
            put(std::string{'=', kHex[c >> 4], kHex[c & 15]});
        }
    }
    out += line;
    return out;
}

#endif
