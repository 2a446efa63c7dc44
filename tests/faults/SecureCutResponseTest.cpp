// The cut responses of CutResponseTest.cpp over TLS: a session on the secure
// socket (verifying the peer, trusting the test certificate; non-blocking so
// that the time limit applies, and blocking for the cuts that end the
// connection) against a TLS peer on loopback that cuts the response
// - in its plaintext, sent in 64-byte records, then ends with a close_notify,
//   a TCP close without one (a truncation), a reset, or a stall;
// - in its raw TLS bytes after the handshake, inside record headers and
//   bodies, then ends with a TCP close or a reset (or a stall, at a few).
// Every cut must end in a documented error within the time limit plus slack,
// or complete with the right content when nothing essential was cut; a cut
// without a close_notify must end in the socket's error, never in an end of
// data; and the session must reconnect and complete a cycle afterwards.

#include <gtest/gtest.h>
#include <openssl/bio.h>
#include <openssl/ssl.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "../secure-socket-e2e/TlsTestServer.h"
#include "CutResponses.h"
#include "LoopbackServer.h"
#include "talvex/TALVEX.h"
#include "transport/MOXCrypto.h"

using namespace cutfaults;

namespace {

constexpr size_t kPiece = 64;  // plaintext per SSL_write, so per TLS record

enum class Cut { CloseNotify, Truncate, Reset, Stall };
enum class Layer { Plaintext, Ciphertext };

const char* cutName(Layer l, Cut c) {
    if (l == Layer::Ciphertext)
        return c == Cut::Reset ? "raw reset" : c == Cut::Stall ? "raw stall" : "raw close";
    switch (c) {
    case Cut::CloseNotify: return "close_notify";
    case Cut::Truncate: return "truncate";
    case Cut::Reset: return "reset";
    default: return "stall";
    }
}

struct Plan {
    const Recorded* response = nullptr;
    size_t offset = 0;  // into the plaintext or into the raw TLS bytes of the response
    Cut cut = Cut::Truncate;
    Layer layer = Layer::Plaintext;
    bool whole = true;  // serve the whole response and keep the connection (close it with close_notify
                        // when the body runs to the end of the connection)
};

// One peer per worker: a TLS server with the test certificate; each accepted
// connection serves its requests according to the plan current when the
// request arrived.
class SecureCuttingPeer {
public:
    SecureCuttingPeer() : m_ctx(makeContext()), m_server([this](int fd) { serve(fd); }) {}
    ~SecureCuttingPeer() {
        m_server.stop();
        SSL_CTX_free(m_ctx);
    }
    SecureCuttingPeer(const SecureCuttingPeer&) = delete;
    SecureCuttingPeer& operator=(const SecureCuttingPeer&) = delete;

    int port() const { return m_server.port(); }
    void setPlan(const Plan& p) {
        std::lock_guard<std::mutex> g(m_lock);
        m_plan = p;
    }
    // The raw TLS bytes of the last response served in ciphertext mode.
    std::string lastRaw() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_last_raw;
    }

private:
    static SSL_CTX* makeContext() {
        const securetest::TestCertificates& certs = securetest::TestCertificates::get();
        SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
        if (ctx == nullptr || SSL_CTX_use_certificate_chain_file(ctx, certs.certificate.c_str()) != 1 ||
            SSL_CTX_use_PrivateKey_file(ctx, certs.key.c_str(), SSL_FILETYPE_PEM) != 1)
            throw std::runtime_error("server context");
        // No session tickets: after the handshake only the response's records
        // travel, so raw offsets fall where the test means them to.
        SSL_CTX_set_num_tickets(ctx, 0);
        return ctx;
    }

    Plan plan() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_plan;
    }

    // The client's request ends with the last chunk (the session sends chunked).
    static bool readRequest(SSL* ssl) {
        static const std::string kEnd = "\r\n0\r\n\r\n";
        std::string req;
        char c;
        while (req.size() < kEnd.size() || req.compare(req.size() - kEnd.size(), kEnd.size(), kEnd) != 0) {
            if (SSL_read(ssl, &c, 1) != 1) return false;
            req += c;
        }
        return true;
    }

    static void writePieces(SSL* ssl, const std::string& data) {
        for (size_t i = 0; i < data.size(); i += kPiece)
            if (SSL_write(ssl, data.data() + i, static_cast<int>(std::min(kPiece, data.size() - i))) <= 0) return;
    }

    // Silent until the client gives up and closes; bounded, so that a client
    // without a working time limit shows as slow, not stuck.
    static void stall(int fd) {
        pollfd pf{fd, POLLIN, 0};
        const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(6);
        while (std::chrono::steady_clock::now() < until) {
            if (::poll(&pf, 1, 50) > 0) {
                char buf[256];
                if (::recv(fd, buf, sizeof buf, 0) <= 0) break;
            }
        }
    }

    void serve(int fd) {
        // Every record goes out when written: a reset must not find records
        // still held back in the send queue (it would drop them), and the
        // whole response must not wait for the client's delayed ACKs.
        int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        SSL* ssl = SSL_new(m_ctx);
        SSL_set_fd(ssl, fd);
        if (SSL_accept(ssl) == 1) serveRequests(ssl, fd);
        SSL_free(ssl);  // sends nothing: whatever ends the connection was done above
    }

    void serveRequests(SSL* ssl, int fd) {
        while (!m_server.stopping() && readRequest(ssl)) {
            const Plan p = plan();
            if (p.whole) {
                writePieces(ssl, p.response->bytes);
                if (!p.response->untilClose) continue;
                SSL_shutdown(ssl);
                ::shutdown(fd, SHUT_WR);
                return;
            }
            if (p.layer == Layer::Plaintext) {
                writePieces(ssl, p.response->bytes.substr(0, p.offset));
            } else {
                // The records go into memory, and only their first bytes onto
                // the connection.
                BIO* mem = BIO_new(BIO_s_mem());
                SSL_set0_wbio(ssl, mem);
                writePieces(ssl, p.response->bytes);
                std::string raw;
                char buf[4096];
                for (int n; (n = BIO_read(mem, buf, sizeof buf)) > 0;) raw.append(buf, static_cast<size_t>(n));
                {
                    std::lock_guard<std::mutex> g(m_lock);
                    m_last_raw = raw;
                }
                LoopbackServer::sendAll(fd, raw.substr(0, std::min(p.offset, raw.size())));
            }
            switch (p.cut) {
            case Cut::CloseNotify:
                SSL_shutdown(ssl);
                ::shutdown(fd, SHUT_WR);
                break;
            case Cut::Truncate: ::shutdown(fd, SHUT_WR); break;
            case Cut::Reset: LoopbackServer::resetOnClose(fd); break;
            case Cut::Stall: stall(fd); break;
            }
            return;
        }
    }

    SSL_CTX* m_ctx;
    std::mutex m_lock;
    Plan m_plan;
    std::string m_last_raw;
    LoopbackServer m_server;
};

std::string trustingConfig() {
    return "<sessionConfigDocument><caFile>" + securetest::TestCertificates::get().certificate +
           "</caFile><verifyPeer>true</verifyPeer></sessionConfigDocument>";
}

// Secure and verifying; non-blocking unless asked (time limits apply only in
// that mode).
std::unique_ptr<TALVEXSession> secureSession(int port, const std::string& config, bool blocking = false) {
    TALVEX toolkit;
    toolkit.setUseVLT(1);
    toolkit.setUseNonBlockingSockets(blocking ? 0 : 1);
    return std::unique_ptr<TALVEXSession>(toolkit.getSession("127.0.0.1", port, "/svc", config.c_str(), 5));
}

// Where each TLS record of a response starts, from its raw bytes.
std::vector<size_t> recordStarts(const std::string& raw) {
    std::vector<size_t> starts;
    size_t pos = 0;
    while (pos + 5 <= raw.size()) {
        starts.push_back(pos);
        pos += 5 + ((static_cast<unsigned char>(raw[pos + 3]) << 8) | static_cast<unsigned char>(raw[pos + 4]));
    }
    return starts;
}

size_t openDescriptors() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                             std::filesystem::directory_iterator()));
}

struct Case {
    const Recorded* response;
    size_t offset;
    Cut cut;
    Layer layer;
    size_t delivered;  // plaintext the client can decrypt before the cut
    std::string where;
    bool blocking = false;  // on a blocking session (no stalls there: its reads have no time limit)
};

class SecureCutResponse : public ::testing::Test {
protected:
    void SetUp() override {
        MOXCrypto crypto("VLT_Crypto_Interface");
        if (!crypto.isLoaded()) GTEST_SKIP() << "the security library is not on the search path";
        std::signal(SIGPIPE, SIG_IGN);  // the peer writes to clients that went away
    }
};

}  // namespace

TEST_F(SecureCutResponse, EveryCutEndsInADocumentedErrorInTimeAndTheSessionRecovers) {
    std::vector<Recorded> responses = recordedResponses();
    for (const Recorded& r : untilCloseResponses()) responses.push_back(r);
    const std::string config = trustingConfig();

    // The raw layout of each response's records, from one real run.
    std::vector<std::vector<size_t>> starts;
    std::vector<size_t> rawSizes;
    {
        SecureCuttingPeer peer;
        std::unique_ptr<TALVEXSession> session = secureSession(peer.port(), config);
        ASSERT_NE(nullptr, session);
        for (const Recorded& r : responses) {
            Plan p;
            p.response = &r;
            p.offset = std::string::npos;
            p.layer = Layer::Ciphertext;
            p.whole = false;
            peer.setPlan(p);
            cycle(*session, r.multipart);
            const std::string raw = peer.lastRaw();
            starts.push_back(recordStarts(raw));
            rawSizes.push_back(raw.size());
            ASSERT_EQ((r.bytes.size() + kPiece - 1) / kPiece, starts.back().size())
                << "one record per piece: " << r.name;
            session->reconnect(5);
        }
    }

    std::vector<Case> cases;
    for (size_t ri = 0; ri < responses.size(); ++ri) {
        const Recorded& r = responses[ri];
        // Plaintext: the offsets of the plain test, every 8th one stalled.
        const std::vector<size_t> offsets = cutOffsets(r);
        for (size_t i = 0; i < offsets.size(); ++i) {
            const size_t o = offsets[i];
            const std::string at = "at " + std::to_string(o) + "/" + std::to_string(r.bytes.size());
            for (Cut c : {Cut::CloseNotify, Cut::Truncate, Cut::Reset})
                cases.push_back({&r, o, c, Layer::Plaintext, o, at});
            if (i % 8 == 0 || o == r.bytes.size()) cases.push_back({&r, o, Cut::Stall, Layer::Plaintext, o, at});
            if (i % 2 == 0 || o == r.bytes.size())
                for (Cut c : {Cut::CloseNotify, Cut::Truncate, Cut::Reset})
                    cases.push_back({&r, o, c, Layer::Plaintext, o, at, true});
        }
        // Raw bytes: every byte of every record header and the first body
        // byte, the last two of every body, every 5th elsewhere; at the end.
        const std::vector<size_t>& st = starts[ri];
        auto recordEnd = [&](size_t k) { return k + 1 < st.size() ? st[k + 1] : rawSizes[ri]; };
        std::set<size_t> raw;
        for (size_t k = 0; k < st.size(); ++k) {
            const size_t end = recordEnd(k);
            for (size_t o = st[k]; o <= st[k] + 6; ++o) raw.insert(o);
            for (size_t o = st[k] + 6; o < end; o += 5) raw.insert(o);
            raw.insert(end - 2);
            raw.insert(end - 1);
        }
        raw.insert(rawSizes[ri]);
        for (size_t o : raw) {
            // Whole records before the offset are what the client can decrypt.
            const size_t records = static_cast<size_t>(std::upper_bound(st.begin(), st.end(), o) - st.begin());
            const size_t full = o >= rawSizes[ri] ? st.size() : (records == 0 ? 0 : records - 1);
            const size_t delivered = std::min(full * kPiece, r.bytes.size());
            const size_t k = records == 0 ? 0 : records - 1;
            const std::string at = "at raw " + std::to_string(o) + "/" + std::to_string(rawSizes[ri]) + " (record " +
                                   std::to_string(k) + " byte " + std::to_string(o - st[k]) + ")";
            cases.push_back({&r, o, Cut::Truncate, Layer::Ciphertext, delivered, at});
            cases.push_back({&r, o, Cut::Reset, Layer::Ciphertext, delivered, at});
            if (o - st[k] <= 5 || o == rawSizes[ri]) {  // the headers' bytes, blocking
                cases.push_back({&r, o, Cut::Truncate, Layer::Ciphertext, delivered, at, true});
                cases.push_back({&r, o, Cut::Reset, Layer::Ciphertext, delivered, at, true});
            }
        }
        // A stall inside a record header and inside a body of a few records.
        for (size_t k = 0; k < st.size(); k += 3)
            for (size_t o : {st[k] + 2, std::min(st[k] + 20, recordEnd(k) - 1)}) {
                const std::string at = "at raw " + std::to_string(o) + "/" + std::to_string(rawSizes[ri]) +
                                       " (record " + std::to_string(k) + " byte " + std::to_string(o - st[k]) + ")";
                cases.push_back({&r, o, Cut::Stall, Layer::Ciphertext, std::min(k * kPiece, r.bytes.size()), at});
            }
    }

    const size_t descriptors = openDescriptors();  // the security library is loaded by now
    CutTally tally;
    std::atomic<size_t> next{0};
    auto work = [&] {
        SecureCuttingPeer peer;
        std::unique_ptr<TALVEXSession> sessions[2] = {secureSession(peer.port(), config),
                                                      secureSession(peer.port(), config, true)};
        if (!sessions[0] || !sessions[1]) {
            tally.fail("no session");
            return;
        }
        bool closedAfter[2] = {false, false};  // the last response ended the connection
        for (size_t i; (i = next++) < cases.size();) {
            const Case& c = cases[i];
            TALVEXSession& session = *sessions[c.blocking ? 1 : 0];
            if (closedAfter[c.blocking]) session.reconnect(5);
            Plan p;
            p.response = c.response;
            p.offset = c.offset;
            p.cut = c.cut;
            p.layer = c.layer;
            p.whole = false;
            peer.setPlan(p);
            const Trial t = cutThenRecover(session, c.response->multipart, [&] {
                p.whole = true;
                peer.setPlan(p);
            });
            closedAfter[c.blocking] = c.response->untilClose;
            tally.add(std::string(c.blocking ? "blocking " : "") + cutName(c.layer, c.cut),
                      c.where + " of " + c.response->name, t, judge(t, c.delivered < completeFrom(*c.response)));
        }
    };
    auto worker = [&] {
        try {
            work();
        } catch (MOXThrowable& e) {  // a failed connect or reconnect outside a trial
            tally.fail(std::string("a worker stopped: ") + e.getThrowableName());
        }
    };
    std::vector<std::thread> workers;
    for (int i = 0; i < 8; ++i) workers.emplace_back(worker);
    for (auto& t : workers) t.join();
    tally.report();
    EXPECT_EQ(descriptors, openDescriptors()) << "descriptors left open once every peer and session is gone";
}

// A body that runs to the end of the connection, cut by a TCP close without
// close_notify at every byte: the toolkit takes the library's "closed without
// a close alert" as the end of the data, so the framing must catch every cut
// (the envelope does not parse, the closing delimiter is missing) and nothing
// may complete short; with everything delivered the cycle completes.
TEST_F(SecureCutResponse, TruncationNeverCompletesACutShortBody) {
    const std::string config = trustingConfig();
    SecureCuttingPeer peer;
    std::unique_ptr<TALVEXSession> session = secureSession(peer.port(), config);
    ASSERT_NE(nullptr, session);
    for (const Recorded& r : untilCloseResponses()) {
        const size_t head = r.bytes.find("\r\n\r\n") + 4;
        for (size_t offset = head; offset <= r.bytes.size(); ++offset) {
            Plan p;
            p.response = &r;
            p.offset = offset;
            p.cut = Cut::Truncate;
            p.whole = false;
            peer.setPlan(p);
            const Outcome o = cycle(*session, r.multipart);
            if (offset < completeFrom(r))
                EXPECT_TRUE(!o.completed && o.documented) << r.name << " truncated at " << offset << ": "
                                                          << (o.completed ? "completed" : o.error);
            else
                EXPECT_TRUE(o.completed && o.correct) << r.name << " truncated at " << offset << ": " << o.error;
            session->reconnect(5);
        }
    }
}
