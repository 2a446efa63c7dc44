#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>

#include "mime/TALVEXBoundaryScanner.h"
#include "mime/TALVEXMPInputStream.h"
#include "mime/TALVEXQPInputStream.h"
#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXInputStream.h"

namespace {

// Bytes in memory, handed out as asked.
class MemoryStream : public PNXInputStream {
public:
    explicit MemoryStream(const std::string& data) : m_data(data) {}
    int read() override { return m_pos < m_data.size() ? static_cast<unsigned char>(m_data[m_pos++]) : -1; }
    unsigned read(char* buf, unsigned n) override {
        if (n == 0) return 0;
        if (m_pos >= m_data.size()) return PNX_EOF;
        const unsigned k = static_cast<unsigned>(std::min<size_t>(n, m_data.size() - m_pos));
        std::memcpy(buf, m_data.data() + m_pos, k);
        m_pos += k;
        return k;
    }
    unsigned read(MOXByteBuffer& b, unsigned n) override {
        char buf[4096];
        const unsigned r = read(buf, n < sizeof buf ? n : sizeof buf);
        if (r != PNX_EOF) b.appendChars(buf, r);
        return r;
    }

private:
    const std::string& m_data;
    size_t m_pos = 0;
};

// Binary data with a near miss of the delimiter every `gap` bytes or so.
std::string partData(const std::string& boundary, size_t size, unsigned gap) {
    std::mt19937 rng(5);
    std::string d;
    while (d.size() < size) {
        const unsigned run = std::uniform_int_distribution<unsigned>(1, gap)(rng);
        for (unsigned i = 0; i < run; ++i) d += static_cast<char>(rng() & 0xFF);
        d += "\r\n--" + boundary.substr(0, boundary.size() / 2) + "x";
    }
    const std::string full = "--" + boundary;
    for (size_t at = d.find(full); at != std::string::npos; at = d.find(full)) d[at + 2] = '\x01';
    return d;
}

void scan(benchmark::State& state, bool fast) {
    const std::string boundary(static_cast<size_t>(state.range(0)), 'b');
    const std::string pattern = "\r\n--" + boundary;
    const std::string data = partData(boundary, 1 << 20, static_cast<unsigned>(state.range(1)));
    for (auto _ : state) {
        TALVEXBoundaryScanner s;
        s.setPattern(pattern);
        // 1024-byte windows, as the multipart stream scans them.
        unsigned total = 0;
        for (size_t at = 0; at < data.size(); at += 1024) {
            const unsigned end = static_cast<unsigned>(std::min<size_t>(1024, data.size() - at));
            total += fast ? s.scan(data.data() + at, 0, end) : s.scanBytewise(data.data() + at, 0, end);
            s.reset();
        }
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(data.size()));
}

void BM_ScanFast(benchmark::State& state) { scan(state, true); }
void BM_ScanBytewise(benchmark::State& state) { scan(state, false); }

void BM_MultipartRead(benchmark::State& state) {
    const std::string boundary = "=_boundary_0123456789";
    std::string body;
    for (int i = 0; i < 8; ++i) body += "\r\n--" + boundary + "\r\nContent-ID: <p>\r\n\r\n" + partData(boundary, 128 * 1024, 200);
    body += "\r\n--" + boundary + "--\r\n";
    char buf[4096];
    for (auto _ : state) {
        MemoryStream in(body);
        TALVEXMPInputStream mp(&in, boundary);
        MOXByteBuffer line(256, 256);
        size_t total = 0;
        while (mp.hasNextPart()) {
            mp.nextPart();
            do line.reset();
            while (mp.readline(line) != 0 && line.trim() != 0);
            for (unsigned r; (r = mp.read(buf, sizeof buf)) != PNX_EOF;) total += r;
        }
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(body.size()));
}

void BM_QPDecode(benchmark::State& state) {
    std::mt19937 rng(9);
    std::string encoded;
    static const char kHex[] = "0123456789ABCDEF";
    while (encoded.size() < (1u << 20)) {
        for (int i = 0; i < 60; ++i) {
            const unsigned c = rng() & 0xFF;
            if (c >= 33 && c <= 126 && c != '=') {
                encoded += static_cast<char>(c);
            } else {
                encoded += '=';
                encoded += kHex[c >> 4];
                encoded += kHex[c & 15];
            }
        }
        encoded += (rng() & 1) ? "=\r\n" : "\r\n";
    }
    char buf[4096];
    for (auto _ : state) {
        MemoryStream in(encoded);
        TALVEXQPInputStream qp(&in);
        size_t total = 0;
        for (unsigned r; (r = qp.read(buf, sizeof buf)) != PNX_EOF;) total += r;
        benchmark::DoNotOptimize(total);
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(encoded.size()));
}

}  // namespace

BENCHMARK(BM_ScanFast)->Args({8, 64})->Args({70, 64})->Args({8, 1024});
BENCHMARK(BM_ScanBytewise)->Args({8, 64})->Args({70, 64})->Args({8, 1024});
BENCHMARK(BM_MultipartRead);
BENCHMARK(BM_QPDecode);
