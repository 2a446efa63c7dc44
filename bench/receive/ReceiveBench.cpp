// Receives one response with a large attachment over loopback through the
// message reader, and the same bytes through a raw recv loop, in one run.
// Reports MB/s and the peak resident memory of each case, measured in a child
// process per case so that one case's peak does not hide another's.
//
//   receive_bench [MiB]        (default 256)

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "LoopbackServer.h"
#include "mime/TALVEXMessageReaderImp.h"
#include "moxidom/MOXIDOM_Document.h"
#include "transport/TALVEXSocketNonSSL.h"

namespace {
const std::string kBoundary = "=_=bench=_=";
const std::string kEnvelope = "<s:Envelope xmlns:s=\"http://schemas.xmlsoap.org/soap/envelope/\"><s:Body/></s:Envelope>";

// The attachment's bytes are a repeating pattern generated on the fly, so the
// server itself holds only one block.
std::string block(bool qp) {
    std::string b;
    if (qp) {
        // Quoted-printable text: printable runs, escapes and soft line breaks.
        while (b.size() < 65536 - 80) b += "The quick brown fox =3D jumps over the lazy dog =E2=82=AC 0123456789=\r\n";
    } else {
        for (int i = 0; i < 65536; ++i) b += static_cast<char>((i * 131 + 7) & 0xFF);
    }
    return b;
}

void sendChunk(int fd, const char* data, size_t n) {
    char head[32];
    int len = std::snprintf(head, sizeof head, "%zx\r\n", n);
    LoopbackServer::sendAll(fd, std::string(head, static_cast<size_t>(len)));
    size_t off = 0;
    while (off < n) {
        ssize_t k = ::send(fd, data + off, n - off, MSG_NOSIGNAL);
        if (k <= 0) return;
        off += static_cast<size_t>(k);
    }
    LoopbackServer::sendAll(fd, "\r\n");
}

// Serves one response: multipart (envelope + attachment), or the raw bytes alone.
void serve(int fd, size_t attachmentBytes, bool chunked, bool qp, bool raw) {
    const std::string data = block(qp);
    const std::string partHead = "--" + kBoundary + "\r\nContent-ID: envelope\r\n\r\n" + kEnvelope + "\r\n--" +
                                 kBoundary + "\r\nContent-ID: big\r\n" +
                                 (qp ? "Content-Transfer-Encoding: quoted-printable\r\n" : "") + "\r\n";
    const std::string tail = "\r\n--" + kBoundary + "--\r\n";
    size_t blocks = attachmentBytes / data.size();
    if (raw) {
        for (size_t i = 0; i < blocks; ++i) LoopbackServer::sendAll(fd, data);
        return;
    }
    std::string head = "HTTP/1.1 200 OK\r\nContent-Type: multipart/related; boundary=\"" + kBoundary + "\"\r\n";
    if (chunked) {
        LoopbackServer::sendAll(fd, head + "Transfer-Encoding: chunked\r\n\r\n");
        sendChunk(fd, partHead.data(), partHead.size());
        for (size_t i = 0; i < blocks; ++i) sendChunk(fd, data.data(), data.size());
        sendChunk(fd, tail.data(), tail.size());
        LoopbackServer::sendAll(fd, "0\r\n\r\n");
    } else {
        size_t length = partHead.size() + blocks * data.size() + tail.size();
        LoopbackServer::sendAll(fd, head + "Content-Length: " + std::to_string(length) + "\r\n\r\n" + partHead);
        for (size_t i = 0; i < blocks; ++i) LoopbackServer::sendAll(fd, data);
        LoopbackServer::sendAll(fd, tail);
    }
    LoopbackServer::readAll(fd);
}

struct Result {
    double seconds;
    unsigned long long bytes;
};

Result runCase(size_t attachmentBytes, bool chunked, bool qp, bool raw) {
    LoopbackServer server([&](int fd) { serve(fd, attachmentBytes, chunked, qp, raw); });
    TALVEXSocketNonSSL socket(0);
    socket.open(server.url().c_str(), nullptr, 5);
    static char buf[65536];
    unsigned long long total = 0;
    auto start = std::chrono::steady_clock::now();
    if (raw) {
        for (unsigned n; (n = socket.getInputStream()->read(buf, sizeof buf)) != PNX_EOF;) total += n;
    } else {
        TALVEXMessageReaderImp reader(0, socket.getInputStream());
        MOXIDOM_Document doc;
        reader.getEnvelope(doc);
        TALVEXAttachmentReader& a = reader.openNextAttachment();
        PNXInputStream& in = a.getInputStream();
        for (unsigned n; (n = in.read(buf, sizeof buf)) != PNX_EOF;) total += n;
        reader.closeAttachment(a);
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    socket.close();
    return {seconds, total};
}
}  // namespace

int main(int argc, char** argv) {
    size_t mib = argc > 1 ? static_cast<size_t>(std::atoi(argv[1])) : 256;
    struct Case {
        const char* name;
        bool chunked, qp, raw;
    } cases[] = {
        {"raw recv loop (limit)", false, false, true},
        {"binary, Content-Length", false, false, false},
        {"binary, chunked", true, false, false},
        {"quoted-printable, Content-Length", false, true, false},
        {"quoted-printable, chunked", true, true, false},
    };
    std::printf("| %zu MiB attachment received over loopback | MB/s (decoded bytes) | peak RSS (MiB) |\n", mib);
    std::printf("|---|---|---|\n");
    for (const Case& c : cases) {
        int pipefd[2];
        if (pipe(pipefd) != 0) return 1;
        pid_t pid = fork();
        if (pid == 0) {
            Result r = runCase(mib * 1024 * 1024, c.chunked, c.qp, c.raw);
            rusage usage{};
            getrusage(RUSAGE_SELF, &usage);
            std::string line = std::to_string(r.bytes / 1e6 / r.seconds) + " " + std::to_string(usage.ru_maxrss / 1024.0);
            if (write(pipefd[1], line.data(), line.size()) < 0) _exit(1);
            _exit(0);
        }
        close(pipefd[1]);
        char out[128] = {0};
        ssize_t n = read(pipefd[0], out, sizeof out - 1);
        close(pipefd[0]);
        int status = 0;
        waitpid(pid, &status, 0);
        double mbps = 0, rss = 0;
        if (n > 0) std::sscanf(out, "%lf %lf", &mbps, &rss);
        std::printf("| %s | %.0f | %.1f |\n", c.name, mbps, rss);
    }
    return 0;
}
