#ifndef TALVEX_BENCH_RAWHTTPENDPOINT_H
#define TALVEX_BENCH_RAWHTTPENDPOINT_H

// A loopback HTTP endpoint for benchmarks that costs as little as possible:
// it reads each request's head and body (Content-Length or chunked) from a
// plain socket without looking at the XML and writes one fixed response.
// One connection at a time, served on its own thread until the peer closes.

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "LoopbackServer.h"

// Buffered reads from a socket; enough HTTP framing to skip one message.
class RawHttpReader {
public:
    static constexpr size_t kRawLimit = 65536;

    // Reads at most n bytes into buf; 0 or less at the end.
    using Source = std::function<long(char* buf, size_t n)>;

    explicit RawHttpReader(int fd)
        : m_source([fd](char* buf, size_t n) { return static_cast<long>(::recv(fd, static_cast<void*>(buf), n, 0)); }) {}
    explicit RawHttpReader(Source source) : m_source(std::move(source)) {}

    // Reads one message (head and body); false at the end of the connection.
    // The bytes are appended to `raw` when it is not null, up to kRawLimit so
    // that a large body does not count against the process's peak memory.
    bool readMessage(std::string* raw, unsigned long long* bodyBytes = nullptr) {
        std::string head;
        for (;;) {
            if (m_pos == m_end && !fill()) return false;
            const char* start = m_buf + m_pos;
            const void* nl = std::memchr(start, '\n', m_end - m_pos);
            size_t n = nl ? static_cast<const char*>(nl) - start + 1 : m_end - m_pos;
            head.append(start, n);
            m_pos += n;
            if (head.size() >= 4 && head.compare(head.size() - 4, 4, "\r\n\r\n") == 0) {
                // An interim 100 response: skip it and read the real head.
                if (head.compare(0, 12, "HTTP/1.1 100") == 0) {
                    head.clear();
                    continue;
                }
                break;
            }
        }
        if (raw) raw->append(head);
        long long length = -1;
        bool chunked = false;
        for (size_t at = 0; at < head.size();) {
            size_t eol = head.find("\r\n", at);
            std::string line = head.substr(at, eol - at);
            at = eol + 2;
            if (strncasecmp(line.c_str(), "content-length:", 15) == 0) length = std::atoll(line.c_str() + 15);
            if (strncasecmp(line.c_str(), "transfer-encoding:", 18) == 0 && strcasestr(line.c_str(), "chunked"))
                chunked = true;
        }
        unsigned long long body = 0;
        if (chunked) {
            for (;;) {
                std::string sizeLine;
                if (!readLine(sizeLine, raw)) return false;
                unsigned long long size = std::strtoull(sizeLine.c_str(), nullptr, 16);
                if (size == 0) {
                    std::string trailer;  // trailers up to the empty line
                    do {
                        if (!readLine(trailer, raw)) return false;
                    } while (trailer != "\r\n");
                    break;
                }
                if (!skip(size, raw)) return false;
                body += size;
                std::string crlf;
                if (!readLine(crlf, raw)) return false;
            }
        } else if (length > 0) {
            if (!skip(static_cast<unsigned long long>(length), raw)) return false;
            body = static_cast<unsigned long long>(length);
        }
        if (bodyBytes) *bodyBytes = body;
        return true;
    }

private:
    bool fill() {
        long n = m_source(m_buf, sizeof m_buf);
        if (n <= 0) return false;
        m_pos = 0;
        m_end = static_cast<size_t>(n);
        return true;
    }
    bool readLine(std::string& line, std::string* raw) {
        line.clear();
        for (;;) {
            if (m_pos == m_end && !fill()) return false;
            const char* start = m_buf + m_pos;
            const void* nl = std::memchr(start, '\n', m_end - m_pos);
            size_t n = nl ? static_cast<const char*>(nl) - start + 1 : m_end - m_pos;
            line.append(start, n);
            m_pos += n;
            if (nl) break;
        }
        if (raw && raw->size() < kRawLimit) raw->append(line);
        return true;
    }
    bool skip(unsigned long long n, std::string* raw) {
        while (n > 0) {
            if (m_pos == m_end && !fill()) return false;
            size_t k = static_cast<size_t>(std::min<unsigned long long>(n, m_end - m_pos));
            if (raw && raw->size() < kRawLimit) raw->append(m_buf + m_pos, k);
            m_pos += k;
            n -= k;
        }
        return true;
    }

    Source m_source;
    char m_buf[65536];
    size_t m_pos = 0, m_end = 0;
};

class RawHttpEndpoint {
public:
    explicit RawHttpEndpoint(std::string response)
        : m_response(std::move(response)), m_server([this](int fd) { serve(fd); }) {}

    int port() const { return m_server.port(); }
    // The first request received, byte for byte.
    std::string firstRequest() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_first;
    }
    unsigned long long lastBodyBytes() const { return m_lastBody.load(); }
    void stop() { m_server.stop(); }

private:
    void serve(int fd) {
        int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        RawHttpReader reader(fd);
        for (bool first = true;; first = false) {
            std::string raw;
            unsigned long long body = 0;
            if (!reader.readMessage(first ? &raw : nullptr, &body)) return;
            m_lastBody = body;
            if (first) {
                std::lock_guard<std::mutex> g(m_lock);
                if (m_first.empty()) m_first = raw;
            }
            LoopbackServer::sendAll(fd, m_response);
        }
    }

    std::string m_response;
    std::mutex m_lock;
    std::string m_first;
    std::atomic<unsigned long long> m_lastBody{0};
    LoopbackServer m_server;  // last: its thread starts once the rest is ready
};

#endif
