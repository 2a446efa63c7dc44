#ifndef TALVEX_TESTS_SOAPECHOENDPOINT_H
#define TALVEX_TESTS_SOAPECHOENDPOINT_H

// A SOAP endpoint on loopback built from the toolkit's own server side: each
// accepted connection is adopted by a plain socket, a message reader (request
// flag 1) reads every request from it and a response writer answers with the
// request's envelope and attachments echoed back. Quoted-printable parts go
// back re-encoded as pre-encoded quoted-printable, so the client decodes the
// original bytes. It can also answer with a SOAP Fault and status 500, send an
// interim "100 Continue" first, answer with a length instead of chunks, and
// drop the connection after each response.
//
// What it saw is kept per request: the head's interesting headers, the raw
// bytes received (taken from the socket's own trace file), the envelope and
// the parts. Each connection's loop ends when the client closes.

#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <strings.h>
#include <string>
#include <vector>

#include "LoopbackServer.h"
#include "QuotedPrintable.h"
#include "ReadAll.h"
#include "http/TALVEXMessageWriterImp.h"
#include "mime/TALVEXMessageReaderImp.h"
#include "moxcore/MOXThrowable.h"
#include "pnxstreams/PNXInputStream.h"
#include "transport/TALVEXSocketNonSSL.h"

class SoapEchoEndpoint {
public:
    struct Options {
        // Answer 500 with a SOAP Fault instead of the echo.
        bool fault = false;
        std::string faultCode = "soapenv:Server";
        std::string faultString = "echo endpoint fault";
        // End the connection after each response; with reset, by a TCP reset.
        bool closeAfterResponse = false;
        bool resetOnClose = false;
        // Send "HTTP/1.1 100 Continue" before the response.
        bool sendContinue = false;
        // Chunked response (with this chunk size, 0 for the writer's default)
        // or one with a length.
        bool chunkedResponse = true;
        int responseChunkSize = 0;
        // When not empty, sent as the response envelope instead of the echo.
        std::string body;
        // When not empty, written as it is instead of a response (a head and
        // as much of a body as wanted: a peer that stalls, or one whose body
        // runs to the end of the connection together with closeAfterResponse).
        std::string rawResponse;
        // The multipart response's boundary; empty: a fresh one.
        std::string boundary;
    };

    struct SeenPart {
        std::string contentId;
        std::string contentType;
        std::string transferEncoding;  // "" when absent
        std::string data;              // as the reader delivers it (decoded)
    };

    struct SeenRequest {
        int connection = 0;  // 1 for the first accepted connection
        std::string uri;
        std::map<std::string, std::string> headers;  // watched headers that were present
        std::string raw;                              // every byte read for this request
        std::string envelope;
        bool multipart = false;
        std::vector<SeenPart> parts;
        std::string error;  // a failure while serving, else ""

        bool has(const std::string& name) const { return headers.count(name) != 0; }
        std::string header(const std::string& name) const {
            auto it = headers.find(name);
            return it == headers.end() ? "<absent>" : it->second;
        }
        // The raw head, up to and including its empty line.
        std::string head() const {
            const size_t end = raw.find("\r\n\r\n");
            return end == std::string::npos ? raw : raw.substr(0, end + 4);
        }
    };

    // Listens on 127.0.0.1, or on ::1 when ipv6 is set (throws when it cannot).
    // Starts with the default options; change them with setOptions.
    explicit SoapEchoEndpoint(bool ipv6 = false)
        : m_watched{"host",           "soapaction",    "content-type", "content-length", "transfer-encoding",
                    "connection",     "expect",        "talvex-http-version"} {
        char dir[] = "/tmp/talvex-echo-XXXXXX";
        if (::mkdtemp(dir) != nullptr) m_dir = dir;
        m_server = std::make_unique<LoopbackServer>([this](int fd) { serveConnection(fd); }, ipv6);
    }

    ~SoapEchoEndpoint() { stop(); }

    // Ends every connection still open and waits for the handlers.
    void stop() {
        if (!m_server) return;
        {
            std::lock_guard<std::mutex> g(m_lock);
            m_stopping = true;
            for (int fd : m_open) ::shutdown(fd, SHUT_RDWR);
        }
        m_server->stop();
        m_server.reset();
        if (!m_dir.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(m_dir, ignored);
        }
    }

    int port() const { return m_server->port(); }
    std::string url(const std::string& path = "/") const { return m_server->url(path); }
    int accepted() const { return m_server->accepted(); }

    void setOptions(const Options& options) {
        std::lock_guard<std::mutex> g(m_lock);
        m_options = options;
    }
    Options options() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_options;
    }
    // Also record this (lower-case) header of every later request.
    void watchHeader(const std::string& name) {
        std::lock_guard<std::mutex> g(m_lock);
        m_watched.insert(name);
    }

    std::vector<SeenRequest> requests() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_requests;
    }
    size_t requestCount() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_requests.size();
    }
    SeenRequest lastRequest() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_requests.empty() ? SeenRequest() : m_requests.back();
    }
    int connectionsEnded() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_ended;
    }
    // Waits until at least n connections have ended; false on time-out.
    bool waitForConnectionsEnded(int n, int timeoutMs = 5000) {
        std::unique_lock<std::mutex> g(m_lock);
        return m_changed.wait_for(g, std::chrono::milliseconds(timeoutMs), [&] { return m_ended >= n; });
    }
    bool waitForRequests(size_t n, int timeoutMs = 5000) {
        std::unique_lock<std::mutex> g(m_lock);
        return m_changed.wait_for(g, std::chrono::milliseconds(timeoutMs), [&] { return m_requests.size() >= n; });
    }

    static std::string faultEnvelope(const std::string& code, const std::string& text) {
        return "<soapenv:Envelope xmlns:soapenv=\"http://schemas.xmlsoap.org/soap/envelope/\"><soapenv:Body>"
               "<soapenv:Fault><faultcode>" +
               escape(code) + "</faultcode><faultstring>" + escape(text) +
               "</faultstring></soapenv:Fault></soapenv:Body></soapenv:Envelope>";
    }

private:
    static std::string escape(const std::string& text) {
        std::string out;
        for (char c : text) {
            if (c == '&') out += "&amp;";
            else if (c == '<') out += "&lt;";
            else if (c == '>') out += "&gt;";
            else out += c;
        }
        return out;
    }

    // The bytes of the read records of a socket trace ("\n<read[n]>\n" and n
    // bytes; write records are skipped), from the reader's position on.
    static std::string readRecords(std::ifstream& trace) {
        std::string text;
        trace.clear();
        char buf[65536];
        while (trace.read(buf, sizeof buf) || trace.gcount() > 0) text.append(buf, static_cast<size_t>(trace.gcount()));
        trace.clear();
        std::string data;
        size_t pos = 0;
        while (pos < text.size()) {
            if (text.compare(pos, 2, "\n<") != 0) break;
            const size_t open = text.find('[', pos);
            const size_t close = text.find("]>\n", pos);
            if (open == std::string::npos || close == std::string::npos) break;
            const bool isRead = text.compare(pos + 2, 4, "read") == 0;
            const int n = std::atoi(text.c_str() + open + 1);
            pos = close + 3;
            if (n > 0) {
                if (isRead) data.append(text, pos, static_cast<size_t>(n));
                pos += static_cast<size_t>(n);
            }
        }
        return data;
    }

    void serveConnection(int fd) {
        int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        int connection;
        std::string tracePath;
        {
            std::lock_guard<std::mutex> g(m_lock);
            connection = ++m_connections;
            if (m_stopping) {
                ++m_ended;
                m_changed.notify_all();
                return;
            }
            m_open.insert(fd);
            tracePath = m_dir + "/connection-" + std::to_string(connection) + ".trace";
        }
        bool reset = false;
        {
            // The socket gets its own descriptor: it closes it when it goes,
            // while the server closes fd.
            TALVEXSocketNonSSL socket(0);
            socket.adopt(::dup(fd));
            if (!m_dir.empty()) socket.echo(tracePath.c_str(), "wb");
            std::ifstream trace(tracePath, std::ios::binary);
            for (;;) {
                char c;
                if (::recv(fd, &c, 1, MSG_PEEK) <= 0) break;  // the client closed
                const Options options = this->options();
                if (!serveOne(socket, options, connection, trace)) break;
                if (options.closeAfterResponse) {
                    reset = options.resetOnClose;
                    break;
                }
            }
            if (reset) LoopbackServer::resetOnClose(fd);
            socket.echo(nullptr);
        }
        std::lock_guard<std::mutex> g(m_lock);
        m_open.erase(fd);
        ++m_ended;
        m_changed.notify_all();
    }

    // The request is recorded before the answer goes out, so a client that
    // has its response finds the request already listed.
    size_t record(SeenRequest& seen, std::ifstream& trace) {
        std::string raw = readRecords(trace);
        seen.raw.swap(raw);
        std::lock_guard<std::mutex> g(m_lock);
        m_requests.push_back(seen);
        m_changed.notify_all();
        return m_requests.size() - 1;
    }

    // Reads one request and answers it; false when the connection is unusable.
    bool serveOne(TALVEXSocketNonSSL& socket, const Options& options, int connection, std::ifstream& trace) {
        SeenRequest seen;
        seen.connection = connection;
        bool recorded = false;
        size_t index = 0;
        try {
            {
                TALVEXMessageReaderImp reader(1, socket.getInputStream());
                PNXInputStream& envelope = reader.openEnvelope();
                seen.envelope = readAll(envelope);
                const char* uri = reader.getHeader("talvex-uri");
                seen.uri = uri != nullptr ? uri : "";
                std::set<std::string> watched;
                {
                    std::lock_guard<std::mutex> g(m_lock);
                    watched = m_watched;
                }
                for (const std::string& name : watched) {
                    const char* value = reader.getHeader(name.c_str());
                    if (value != nullptr) seen.headers[name] = value;
                }
                reader.closeEnvelope(envelope);
                seen.multipart = reader.isMultipart() != 0;
                while (reader.hasMoreAttachments()) {
                    TALVEXAttachmentReader& a = reader.openNextAttachment();
                    SeenPart part;
                    part.contentId = a.getContentId();
                    part.contentType = a.getContentType();
                    const char* encoding = a.getHeader("content-transfer-encoding");
                    part.transferEncoding = encoding != nullptr ? encoding : "";
                    part.data = readAll(a.getInputStream());
                    reader.closeAttachment(a);
                    seen.parts.push_back(part);
                }
            }  // the reader's destructor reads the rest of the request
            index = record(seen, trace);
            recorded = true;

            if (options.sendContinue) {
                static const char kContinue[] = "HTTP/1.1 100 Continue\r\n\r\n";
                socket.getOutputStream()->write(kContinue, sizeof kContinue - 1);
            }
            if (!options.rawResponse.empty()) {
                socket.getOutputStream()->write(options.rawResponse.data(),
                                                static_cast<unsigned>(options.rawResponse.size()));
                return true;
            }
            const bool multipart = seen.multipart && !options.fault;
            TALVEXMessageWriterImp writer("", 0, multipart ? 1 : 0, &socket, options.chunkedResponse ? 1 : 0,
                                          options.responseChunkSize,
                                          options.boundary.empty() ? nullptr : options.boundary.c_str());
            std::string body = options.body.empty() ? seen.envelope : options.body;
            if (options.fault) {
                writer.setResponseStatus(500, "Internal Server Error");
                body = faultEnvelope(options.faultCode, options.faultString);
            }
            PNXOutputStream& out = writer.openEnvelope();
            if (!body.empty()) out.write(body.data(), static_cast<unsigned>(body.size()));
            writer.closeEnvelope(out);
            if (multipart) {
                for (const SeenPart& part : seen.parts) {
                    std::string type = part.contentType;
                    std::string data = part.data;
                    if (strcasecmp(part.transferEncoding.c_str(), "quoted-printable") == 0) {
                        type = "text/vornatk-pre-encoded-quoted-printable";
                        data = encodeQuotedPrintable(part.data);
                    }
                    PNXOutputStream& p = writer.openAttachment(type.c_str(), nullptr, part.contentId.c_str(), 0);
                    if (!data.empty()) p.write(data.data(), static_cast<unsigned>(data.size()));
                    writer.closeAttachment(p);
                }
            }
            writer.close();
            return true;
        } catch (MOXThrowable& e) {
            seen.error = e.toString().str();
        } catch (std::exception& e) {
            seen.error = e.what();
        } catch (...) {
            seen.error = "unknown failure";
        }
        if (!recorded) {
            record(seen, trace);
        } else {
            std::lock_guard<std::mutex> g(m_lock);
            m_requests[index].error = seen.error;  // the answer failed
        }
        return false;
    }

    std::mutex m_lock;
    std::condition_variable m_changed;
    Options m_options;
    std::set<std::string> m_watched;
    std::vector<SeenRequest> m_requests;
    std::set<int> m_open;
    int m_connections = 0;
    int m_ended = 0;
    bool m_stopping = false;
    std::string m_dir;
    std::unique_ptr<LoopbackServer> m_server;
};

#endif
