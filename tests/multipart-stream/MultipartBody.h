#ifndef TALVEX_TESTS_MULTIPARTBODY_H
#define TALVEX_TESTS_MULTIPARTBODY_H

#include <random>
#include <string>
#include <utility>
#include <vector>

// A multipart body to take apart: boundary, optional preamble, parts with
// headers and data, closing delimiter, optional epilogue. random() makes
// bodies whose data is full of near-miss delimiters (CR LF "--" and a
// prefix of the boundary followed by another byte, "-" and the boundary,
// lone CRs and LFs) but never "--" and the whole boundary, so that a strict
// parser and a line-based one agree on where the parts are.
class MultipartBody {
public:
    struct Part {
        std::vector<std::pair<std::string, std::string>> headers;
        std::string data;
    };

    std::string boundary;
    bool has_preamble = false;
    std::string preamble;
    std::vector<Part> parts;
    bool has_epilogue = false;  // CR LF after the closing "--", then the epilogue
    std::string epilogue;

    // The body as sent (without the CR LF the reader pushes in front).
    std::string bytes() const {
        std::string s;
        if (has_preamble) s += preamble + "\r\n";
        s += "--" + boundary;
        for (const Part& p : parts) {
            s += "\r\n";
            for (const auto& h : p.headers) s += h.first + ": " + h.second + "\r\n";
            s += "\r\n";
            s += p.data;
            s += "\r\n--" + boundary;
        }
        s += "--";
        if (has_epilogue) s += "\r\n" + epilogue;
        return s;
    }

    static std::string randomBoundary(std::mt19937& rng, unsigned length) {
        // The characters a boundary may hold; a space never comes last.
        static const char kChars[] =
            "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ'()+_,-./:=? ";
        std::string b;
        while (b.size() < length) {
            const char c = kChars[pick(rng, sizeof kChars - 2)];
            if (c == ' ' && b.size() + 1 == length) continue;
            b += c;
        }
        return b;
    }

    // Binary data of about `size` bytes with near misses of the delimiter.
    static std::string randomData(std::mt19937& rng, const std::string& boundary, unsigned size) {
        std::string d;
        while (d.size() < size) {
            switch (pick(rng, 9)) {
                case 0: {  // CR LF "--", part of the boundary, then a wrong byte
                    const unsigned k = pick(rng, static_cast<unsigned>(boundary.size() - 1));
                    d += "\r\n--" + boundary.substr(0, k);
                    char wrong;
                    do wrong = static_cast<char>(pick(rng, 255)); while (wrong == boundary[k]);
                    d += wrong;
                    break;
                }
                case 1:
                    d += "\r\n-" + boundary;
                    break;
                case 2:  // a prefix running into the real delimiter or a line end
                    d += "\r\n--" + boundary.substr(0, pick(rng, static_cast<unsigned>(boundary.size() - 1)));
                    break;
                case 3:
                    d += pick(rng, 1) ? "\r" : "\n";
                    break;
                case 4:
                    d += "\r\r\n-";
                    break;
                default: {
                    const unsigned n = 1 + pick(rng, 40);
                    for (unsigned i = 0; i < n; ++i) d += static_cast<char>(pick(rng, 255));
                }
            }
        }
        d.resize(size);
        return sanitize(d, boundary);
    }

    static MultipartBody random(std::mt19937& rng) {
        MultipartBody body;
        // Mostly short boundaries (near misses are likelier), sometimes the longest.
        const unsigned roll = pick(rng, 9);
        const unsigned length = roll < 5 ? 1 + pick(rng, 7) : roll < 8 ? 1 + pick(rng, 69) : 70;
        body.boundary = randomBoundary(rng, length);
        body.has_preamble = pick(rng, 1) == 1;
        if (body.has_preamble) body.preamble = randomData(rng, body.boundary, pick(rng, 3) == 0 ? 0 : pick(rng, 1500));
        const unsigned count = pick(rng, 9) == 0 ? 0 : 1 + pick(rng, 5);
        for (unsigned i = 0; i < count; ++i) {
            Part p;
            static const char* const kNames[] = {"Content-ID", "Content-Description", "X-Part",
                                                 "Content-Location", "X-Trace"};
            const unsigned headers = pick(rng, 3);
            for (unsigned h = 0; h < headers; ++h) p.headers.emplace_back(kNames[pick(rng, 4)], randomValue(rng));
            const unsigned sizeClass = pick(rng, 9);
            const unsigned size = sizeClass == 0 ? 0 : sizeClass < 4 ? 1 + pick(rng, 40) : pick(rng, 4000);
            p.data = randomData(rng, body.boundary, size);
            body.parts.push_back(std::move(p));
        }
        body.has_epilogue = pick(rng, 3) != 0;
        if (body.has_epilogue) body.epilogue = randomData(rng, body.boundary, pick(rng, 1200));
        return body;
    }

    // 0..max inclusive.
    static unsigned pick(std::mt19937& rng, unsigned max) {
        return std::uniform_int_distribution<unsigned>(0, max)(rng);
    }

private:
    static std::string randomValue(std::mt19937& rng) {
        std::string v;
        const unsigned n = 1 + pick(rng, 30);
        for (unsigned i = 0; i < n; ++i) {
            char c = static_cast<char>(0x20 + pick(rng, 0x5E));
            if ((i == 0 || i + 1 == n) && c == ' ') c = 'v';
            v += c;
        }
        return v;
    }

    // No "--" followed by the whole boundary anywhere.
    static std::string sanitize(std::string d, const std::string& boundary) {
        const std::string full = "--" + boundary;
        for (size_t at = d.find(full); at != std::string::npos; at = d.find(full)) d[at + 2] = '\x01';
        return d;
    }
};

#endif
