// A peer that sends a good response only up to a byte offset, then closes,
// resets or stalls. With a one-second time limit on the session's socket
// stream, every cut must end the cycle in one of the toolkit's documented
// errors within the limit plus slack (or complete, when nothing essential was
// cut), and the session must reconnect and complete a cycle afterwards.
//
// Plain sockets only; the secure socket gets its own run once its test peer
// can be cut the same way.

#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <chrono>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "LoopbackServer.h"
#include "moxcore/MOXException.h"
#include "moxcore/MOXThrowable.h"
#include "moxidom/MOXIDOM_Document.h"
#include "moxidom/MOXIDOM_Element.h"
#include "pnxstreams/PNXIOException.h"
#include "pnxstreams/PNXIOTimeoutException.h"
#include "pnxstreams/PNXInputStream.h"
#include "talvex/TALVEX.h"
#include "talvex/TALVEXAttachmentReader.h"
#include "talvex/TALVEXException.h"
#include "talvex/TALVEXMessageReader.h"
#include "talvex/TALVEXSession.h"
#include "talvex/TALVEXSocket.h"
#include "talvex/TALVEXSocketInputStream.h"

namespace {

const char* const kSoapNs = "http://schemas.xmlsoap.org/soap/envelope/";
const std::string kText = "fault injection";
const std::string kEnvelope =
    "<soapenv:Envelope xmlns:soapenv=\"http://schemas.xmlsoap.org/soap/envelope/\"><soapenv:Body>"
    "<e:echo xmlns:e=\"urn:talvex:echo\">" + kText + "</e:echo></soapenv:Body></soapenv:Envelope>";
const std::string kBoundary = "=_=cut-boundary=_=";
const std::string kQpEncoded = "caf=C3=A9 soft=\r\nbreak\r\nsecond =3D line  \r\nend";
const std::string kQpDecoded = "caf\xC3\xA9 softbreak\r\nsecond = line  \r\nend";

std::string chunked(const std::string& body, size_t piece) {
    std::string out;
    char size[16];
    for (size_t i = 0; i < body.size(); i += piece) {
        const std::string c = body.substr(i, piece);
        std::snprintf(size, sizeof size, "%zx", c.size());
        out += std::string(size) + "\r\n" + c + "\r\n";
    }
    return out + "0\r\n\r\n";
}

struct Recorded {
    std::string name;
    std::string bytes;
    bool multipart;
    std::vector<size_t> delimiters;  // offsets of framing marks; cuts cluster around them
};

std::vector<size_t> findAll(const std::string& s, const std::vector<std::string>& marks) {
    std::vector<size_t> out;
    for (const std::string& m : marks)
        for (size_t p = s.find(m); p != std::string::npos; p = s.find(m, p + 1)) {
            out.push_back(p);
            out.push_back(p + m.size());
        }
    return out;
}

std::vector<Recorded> recordedResponses() {
    std::vector<Recorded> out;
    {
        Recorded r{"one-piece with length",
                   "HTTP/1.1 200 OK\r\nContent-Type: text/xml; charset=UTF-8\r\nContent-Length: " +
                       std::to_string(kEnvelope.size()) + "\r\n\r\n" + kEnvelope,
                   false, {}};
        r.delimiters = findAll(r.bytes, {"\r\n"});
        out.push_back(r);
    }
    {
        Recorded r{"one-piece chunked",
                   "HTTP/1.1 200 OK\r\nContent-Type: text/xml; charset=UTF-8\r\nTransfer-Encoding: chunked\r\n\r\n" +
                       chunked(kEnvelope, 50),
                   false, {}};
        r.delimiters = findAll(r.bytes, {"\r\n"});
        out.push_back(r);
    }
    {
        const std::string body = "--" + kBoundary + "\r\nContent-Type: text/xml; charset=UTF-8\r\nContent-ID: <env>\r\n\r\n" +
                                 kEnvelope + "\r\n--" + kBoundary +
                                 "\r\nContent-Type: text/plain\r\nContent-ID: <qp>\r\n"
                                 "Content-Transfer-Encoding: quoted-printable\r\n\r\n" +
                                 kQpEncoded + "\r\n--" + kBoundary + "--\r\n";
        Recorded r{"multipart chunked with a quoted-printable part",
                   "HTTP/1.1 200 OK\r\nContent-Type: multipart/related; type=\"text/xml\"; boundary=\"" + kBoundary +
                       "\"\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked(body, 64),
                   true, {}};
        r.delimiters = findAll(r.bytes, {"\r\n", "--" + kBoundary, "="});
        out.push_back(r);
    }
    return out;
}

// Every offset in the head and within 2 bytes of a framing mark, every 7th
// elsewhere, and the full length (a cut after the end).
std::vector<size_t> cutOffsets(const Recorded& r) {
    std::set<size_t> offsets;
    const size_t head = r.bytes.find("\r\n\r\n") + 4;
    for (size_t i = 0; i <= head; ++i) offsets.insert(i);
    for (size_t d : r.delimiters)
        for (size_t i = d >= 2 ? d - 2 : 0; i <= d + 2 && i <= r.bytes.size(); ++i) offsets.insert(i);
    for (size_t i = 0; i < r.bytes.size(); i += 7) offsets.insert(i);
    offsets.insert(r.bytes.size());
    return {offsets.begin(), offsets.end()};
}

enum class Cut { Close, Reset, Stall };
const char* cutName(Cut c) { return c == Cut::Close ? "close" : c == Cut::Reset ? "reset" : "stall"; }

struct Plan {
    const Recorded* response = nullptr;
    size_t offset = 0;
    Cut cut = Cut::Close;
    bool whole = true;  // serve the whole response and keep the connection
};

// One peer per worker; each accepted connection serves its requests according
// to the plan current when the request arrived.
class CuttingPeer {
public:
    CuttingPeer() : m_server([this](int fd) { serve(fd); }) {}
    int port() const { return m_server.port(); }
    void setPlan(const Plan& p) {
        std::lock_guard<std::mutex> g(m_lock);
        m_plan = p;
    }

private:
    Plan plan() {
        std::lock_guard<std::mutex> g(m_lock);
        return m_plan;
    }
    // The client's request ends with the last chunk (the session sends chunked).
    static bool readRequest(int fd) {
        const std::string req = LoopbackServer::readUntil(fd, "\r\n0\r\n\r\n");
        return req.find("\r\n0\r\n\r\n") != std::string::npos;
    }
    void serve(int fd) {
        while (!m_server.stopping() && readRequest(fd)) {
            const Plan p = plan();
            if (p.whole) {
                LoopbackServer::sendAll(fd, p.response->bytes);
                continue;
            }
            LoopbackServer::sendAll(fd, p.response->bytes.substr(0, p.offset));
            if (p.cut == Cut::Reset) {
                LoopbackServer::resetOnClose(fd);
            } else if (p.cut == Cut::Stall) {
                // Silent until the client gives up and closes; bounded, so that
                // a client without a working time limit shows as slow, not stuck.
                pollfd pf{fd, POLLIN, 0};
                const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(6);
                while (std::chrono::steady_clock::now() < until) {
                    if (::poll(&pf, 1, 50) > 0) {
                        char c;
                        if (::recv(fd, &c, 1, 0) <= 0) break;
                    }
                }
            } else {
                ::shutdown(fd, SHUT_WR);
            }
            return;
        }
    }

    std::mutex m_lock;
    Plan m_plan;
    LoopbackServer m_server;
};

struct Outcome {
    bool completed = false;
    std::string error;  // "TALVEXException 6", "PNXIOTimeoutException", ...
    bool documented = false;
    bool correct = false;  // completed with the right envelope and attachment
    double seconds = 0;
};

MOXIDOM_Element requestEnvelope(MOXIDOM_Document& doc) {
    MOXIDOM_Element env = doc.createElementNS(kSoapNs, "soapenv:Envelope");
    doc.appendChild(env);
    env.appendElementNS(kSoapNs, "soapenv:Body").appendElementNS("urn:talvex:echo", "e:echo").appendText(kText);
    return env;
}

void limit(TALVEXSession& s) { s.getSessionSocket()->getInputStream()->setTimeout(1); }

std::string readAll(PNXInputStream& in) {
    std::string out;
    char buf[256];
    for (unsigned n; (n = in.read(buf, sizeof buf)) != PNX_EOF;) out.append(buf, n);
    return out;
}

// One request/response cycle through the streaming calls, the time limit set
// before every step that reads (the reader clears it when the envelope closes).
Outcome cycle(TALVEXSession& s, bool multipart) {
    Outcome o;
    const auto start = std::chrono::steady_clock::now();
    try {
        MOXIDOM_Document request;
        MOXIDOM_Element env = requestEnvelope(request);
        s.sendRequest(env);
        limit(s);
        TALVEXMessageReader& r = s.openResponse();
        MOXIDOM_Document response;
        r.getEnvelope(response);
        bool right = response.getDocumentElement().getTextContent() == kText;
        if (multipart) {
            int parts = 0;
            limit(s);
            while (r.hasMoreAttachments()) {
                TALVEXAttachmentReader& a = r.openNextAttachment();
                right = right && readAll(a.getInputStream()) == kQpDecoded;
                r.closeAttachment(a);
                ++parts;
                limit(s);
            }
            right = right && parts == 1;
        }
        limit(s);
        s.closeResponse(r);
        o.completed = true;
        o.correct = right;
        o.documented = true;
    } catch (PNXIOTimeoutException&) {
        o.error = "PNXIOTimeoutException";
        o.documented = true;
    } catch (PNXIOException&) {
        o.error = "PNXIOException";
        o.documented = true;
    } catch (TALVEXException& e) {
        o.error = "TALVEXException " + std::to_string(e.getCode());
        const int c = e.getCode();
        o.documented = c == 5 || c == 6 || c == 20 || c == 27 || c == 28;
    } catch (MOXThrowable& t) {
        o.error = t.getThrowableName();
    } catch (std::exception& e) {
        o.error = std::string("std::exception ") + e.what();
    } catch (...) {
        o.error = "unknown";
    }
    o.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return o;
}

struct Case {
    const Recorded* response;
    size_t offset;
    Cut cut;
};

// Once the last chunk's line (or the closing delimiter) is in, everything has
// been delivered; what is cut after it is drained and dropped by the reader
// when the response closes, and the next cycle reconnects anyway.
size_t completeFrom(const Recorded& r) {
    if (!r.multipart) {
        const size_t last = r.bytes.rfind("\r\n0\r\n\r\n");
        return last == std::string::npos ? r.bytes.size() : last + 5;
    }
    const std::string closing = "--" + kBoundary + "--";
    return r.bytes.find(closing) + closing.size();
}

struct Finding {
    Case c;
    std::string what;
};

}  // namespace

TEST(CutResponse, EveryCutEndsInADocumentedErrorInTimeAndTheSessionRecovers) {
    const std::vector<Recorded> responses = recordedResponses();
    std::vector<Case> cases;
    for (const Recorded& r : responses) {
        const std::vector<size_t> offsets = cutOffsets(r);
        for (size_t i = 0; i < offsets.size(); ++i) {
            cases.push_back({&r, offsets[i], Cut::Close});
            cases.push_back({&r, offsets[i], Cut::Reset});
            // A stall costs the full time limit: every 5th offset, and the end.
            if (i % 5 == 0 || offsets[i] == r.bytes.size()) cases.push_back({&r, offsets[i], Cut::Stall});
        }
    }

    std::mutex lock;
    std::vector<Finding> findings;
    std::map<std::string, int> tally;
    std::atomic<size_t> next{0};
    double slowest = 0;
    const double kAllowed = 1.0 + 2.0;  // the limit plus slack for a loaded machine

    auto worker = [&] {
        CuttingPeer peer;
        TALVEX toolkit;
        toolkit.setUseVLT(0);
        std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", peer.port(), "/svc", nullptr, 5));
        if (!session) {
            std::lock_guard<std::mutex> g(lock);
            findings.push_back({{nullptr, 0, Cut::Close}, "no session"});
            return;
        }
        for (size_t i; (i = next++) < cases.size();) {
            const Case& c = cases[i];
            Plan p;
            p.response = c.response;
            p.offset = c.offset;
            p.cut = c.cut;
            p.whole = false;
            peer.setPlan(p);
            const Outcome cut = cycle(*session, c.response->multipart);

            p.whole = true;
            peer.setPlan(p);
            Outcome again;
            try {
                session->reconnect(5);
                again = cycle(*session, c.response->multipart);
            } catch (MOXThrowable& t) {
                again.error = std::string("reconnect: ") + t.getThrowableName();
            }

            std::lock_guard<std::mutex> g(lock);
            ++tally[std::string(cutName(c.cut)) + " -> " + (cut.completed ? "completed" : cut.error)];
            if (cut.seconds > slowest) slowest = cut.seconds;
            std::string what;
            if (!cut.documented) what += "undocumented outcome " + cut.error + "; ";
            if (cut.completed && !cut.correct) what += "completed with wrong content; ";
            if (cut.completed && c.offset < completeFrom(*c.response)) what += "completed although cut short; ";
            if (cut.seconds > kAllowed) what += "took " + std::to_string(cut.seconds) + " s; ";
            if (!again.completed || !again.correct) what += "no recovery (" + again.error + "); ";
            if (!what.empty()) findings.push_back({c, what});
        }
    };
    std::vector<std::thread> workers;
    for (int i = 0; i < 8; ++i) workers.emplace_back(worker);
    for (auto& t : workers) t.join();

    std::ostringstream summary;
    summary << cases.size() << " cuts, slowest " << slowest << " s\n";
    for (const auto& [k, n] : tally) summary << "  " << k << ": " << n << "\n";
    std::cout << summary.str();
    std::ostringstream bad;
    for (const Finding& f : findings) {
        if (f.c.response == nullptr) {
            bad << f.what << "\n";
            continue;
        }
        bad << f.c.response->name << ", " << cutName(f.c.cut) << " at " << f.c.offset << "/"
            << f.c.response->bytes.size() << ": " << f.what << "\n";
    }
    EXPECT_TRUE(findings.empty()) << findings.size() << " of " << cases.size() << " cuts misbehaved:\n" << bad.str();
}

// The stream ends inside the head's last line: that is an incomplete head
// (6), whatever the cut line would have meant had it been whole.
TEST(CutResponse, TruncatedHeadLineReportsHeadIncomplete) {
    const std::vector<std::string> heads = {"HTTP/1.", "HTTP/1.1 ", "HTTP/1.1 200 OK\r\nTransfer-Encoding: ",
                                            "HTTP/1.1 200 OK\r\nContent-Type: multipart/related; bound"};
    for (const std::string& head : heads) {
        CuttingPeer peer;
        Recorded r{"head", head, false, {}};
        Plan p;
        p.response = &r;
        p.offset = head.size();
        p.whole = false;
        peer.setPlan(p);
        TALVEX toolkit;
        toolkit.setUseVLT(0);
        std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", peer.port(), "/svc", nullptr, 5));
        ASSERT_NE(nullptr, session);
        const Outcome o = cycle(*session, false);
        EXPECT_EQ("TALVEXException 6", o.error) << "cut after [" << head << "]";
    }
}

// A multipart response whose peer goes silent after the envelope part's data
// (before the next delimiter) must time out like any other read.
TEST(CutResponse, StallBeforeTheNextDelimiterEndsInTime) {
    const std::vector<Recorded> responses = recordedResponses();
    const Recorded& r = responses[2];
    CuttingPeer peer;
    Plan p;
    p.response = &r;
    p.offset = r.bytes.find("</soapenv:Envelope>") + 19;  // the envelope's data is in, its delimiter is not
    p.cut = Cut::Stall;
    p.whole = false;
    peer.setPlan(p);
    TALVEX toolkit;
    toolkit.setUseVLT(0);
    std::unique_ptr<TALVEXSession> session(toolkit.getSession("127.0.0.1", peer.port(), "/svc", nullptr, 5));
    ASSERT_NE(nullptr, session);
    const Outcome o = cycle(*session, true);
    EXPECT_EQ("PNXIOTimeoutException", o.error);
    EXPECT_LT(o.seconds, 3.0);
}
