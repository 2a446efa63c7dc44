// Cost of the senders per body byte and how many writes reach the stream, for
// small and large writes, chunked and with a length.
#include <benchmark/benchmark.h>

#include <memory>
#include <string>

#include "moxhttptools/MultipartHttpMsg.h"
#include "moxhttptools/OnePieceHttpMsg.h"

namespace {

// Counts what a socket would be asked to send, without keeping it.
class CountingOutputStream : public PNXOutputStream {
public:
    void write(const char* data, unsigned int length) override {
        benchmark::DoNotOptimize(data);
        ++writes;
        bytes += length;
    }
    long writes = 0;
    long bytes = 0;
};

const std::size_t kBodySize = 1 << 20;

// args: write size, chunk size (0: Content-Length)
void BM_OnePiece(benchmark::State& state) {
    const std::size_t writeSize = static_cast<std::size_t>(state.range(0));
    const int chunkSize = static_cast<int>(state.range(1));
    const std::string data(kBodySize, 'x');
    CountingOutputStream out;
    long messages = 0;
    for (auto _ : state) {
        OnePieceHttpMsg sender(out, chunkSize);
        sender.startRequest("/soap/svc", 0);
        sender.setAuthority("example.org:8080");
        sender.setHeader("Content-Type", "text/xml; charset=UTF-8");
        for (std::size_t pos = 0; pos < data.size(); pos += writeSize) {
            sender.body.write(data.data() + pos, static_cast<unsigned>(writeSize));
        }
        sender.finish();
        ++messages;
    }
    state.SetBytesProcessed(static_cast<int64_t>(messages) * static_cast<int64_t>(kBodySize));
    state.counters["writes/msg"] = static_cast<double>(out.writes) / static_cast<double>(messages);
}
BENCHMARK(BM_OnePiece)
    ->ArgNames({"write", "chunk"})
    ->Args({1, 4000})
    ->Args({16, 4000})
    ->Args({65536, 4000})
    ->Args({1, 65536})
    ->Args({65536, 65536})
    ->Args({1, 0})
    ->Args({65536, 0});

// args: write size, chunk size; four parts of a quarter of the body each.
void BM_Multipart(benchmark::State& state) {
    const std::size_t writeSize = static_cast<std::size_t>(state.range(0));
    const int chunkSize = static_cast<int>(state.range(1));
    const std::string data(kBodySize / 4, 'x');
    CountingOutputStream out;
    long messages = 0;
    for (auto _ : state) {
        MultipartHttpMsg sender(out, chunkSize, "=_=vorna-mp-boundary=_=");
        sender.startRequest("/soap/svc", 0);
        sender.setAuthority("example.org:8080");
        for (int p = 0; p < 4; ++p) {
            OnePieceHttpMsg* part = sender.addOnePiece(0);
            part->setHeader("Content-Type", "application/octet-stream");
            part->setHeader("Content-ID", std::to_string(p).c_str());
            for (std::size_t pos = 0; pos < data.size(); pos += writeSize) {
                part->body.write(data.data() + pos, static_cast<unsigned>(writeSize));
            }
            sender.endPart(part);
        }
        sender.finish();
        ++messages;
    }
    state.SetBytesProcessed(static_cast<int64_t>(messages) * static_cast<int64_t>(kBodySize));
    state.counters["writes/msg"] = static_cast<double>(out.writes) / static_cast<double>(messages);
}
BENCHMARK(BM_Multipart)->ArgNames({"write", "chunk"})->Args({16, 4000})->Args({65536, 65536})->Args({16, 0});

}  // namespace
