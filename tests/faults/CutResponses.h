#ifndef TALVEX_TESTS_FAULTS_CUTRESPONSES_H
#define TALVEX_TESTS_FAULTS_CUTRESPONSES_H

// What the plain and the secure fault-injection tests share: the recorded good
// responses, the byte offsets they are cut at, one request/response cycle with
// a one-second time limit and its outcome, and the tally of what the cuts led
// to.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <iostream>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "ReadAll.h"
#include "moxcore/MOXException.h"
#include "moxcore/MOXThrowable.h"
#include "moxidom/MOXIDOM_Document.h"
#include "moxidom/MOXIDOM_Element.h"
#include "pnxstreams/PNXIOException.h"
#include "pnxstreams/PNXIOTimeoutException.h"
#include "pnxstreams/PNXInputStream.h"
#include "talvex/TALVEXAttachmentReader.h"
#include "talvex/TALVEXException.h"
#include "talvex/TALVEXMessageReader.h"
#include "talvex/TALVEXSession.h"
#include "talvex/TALVEXSocket.h"
#include "talvex/TALVEXSocketInputStream.h"

namespace cutfaults {

inline const char* const kSoapNs = "http://schemas.xmlsoap.org/soap/envelope/";
inline const std::string kText = "fault injection";
inline const std::string kEnvelope =
    "<soapenv:Envelope xmlns:soapenv=\"http://schemas.xmlsoap.org/soap/envelope/\"><soapenv:Body>"
    "<e:echo xmlns:e=\"urn:talvex:echo\">" + kText + "</e:echo></soapenv:Body></soapenv:Envelope>";
inline const std::string kBoundary = "=_=cut-boundary=_=";
inline const std::string kQpEncoded = "caf=C3=A9 soft=\r\nbreak\r\nsecond =3D line  \r\nend";
inline const std::string kQpDecoded = "caf\xC3\xA9 softbreak\r\nsecond = line  \r\nend";

inline std::string chunked(const std::string& body, size_t piece) {
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
    bool untilClose = false;         // the body runs to the end of the connection
};

inline std::vector<size_t> findAll(const std::string& s, const std::vector<std::string>& marks) {
    std::vector<size_t> out;
    for (const std::string& m : marks)
        for (size_t p = s.find(m); p != std::string::npos; p = s.find(m, p + 1)) {
            out.push_back(p);
            out.push_back(p + m.size());
        }
    return out;
}

// The envelope, then a quoted-printable attachment.
inline std::string multipartBody() {
    return "--" + kBoundary + "\r\nContent-Type: text/xml; charset=UTF-8\r\nContent-ID: <env>\r\n\r\n" + kEnvelope +
           "\r\n--" + kBoundary +
           "\r\nContent-Type: text/plain\r\nContent-ID: <qp>\r\n"
           "Content-Transfer-Encoding: quoted-printable\r\n\r\n" +
           kQpEncoded + "\r\n--" + kBoundary + "--\r\n";
}

inline std::vector<Recorded> recordedResponses() {
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
        const std::string body = multipartBody();
        Recorded r{"multipart chunked with a quoted-printable part",
                   "HTTP/1.1 200 OK\r\nContent-Type: multipart/related; type=\"text/xml\"; boundary=\"" + kBoundary +
                       "\"\r\nTransfer-Encoding: chunked\r\n\r\n" + chunked(body, 64),
                   true, {}};
        r.delimiters = findAll(r.bytes, {"\r\n", "--" + kBoundary, "="});
        out.push_back(r);
    }
    return out;
}

// Responses without a length or chunks: only the end of the connection ends
// their bodies, so over TLS only a close_notify may end them.
inline std::vector<Recorded> untilCloseResponses() {
    std::vector<Recorded> out;
    {
        Recorded r{"one-piece to the end of the connection",
                   "HTTP/1.1 200 OK\r\nContent-Type: text/xml; charset=UTF-8\r\nConnection: close\r\n\r\n" + kEnvelope,
                   false, {}};
        r.delimiters = findAll(r.bytes, {"\r\n", "><"});
        r.untilClose = true;
        out.push_back(r);
    }
    {
        Recorded r{"multipart to the end of the connection",
                   "HTTP/1.1 200 OK\r\nContent-Type: multipart/related; type=\"text/xml\"; boundary=\"" + kBoundary +
                       "\"\r\nConnection: close\r\n\r\n" + multipartBody(),
                   true, {}};
        r.delimiters = findAll(r.bytes, {"\r\n", "--" + kBoundary, "="});
        r.untilClose = true;
        out.push_back(r);
    }
    return out;
}

// Every offset in the head and within 2 bytes of a framing mark, every
// `every`-th elsewhere, and the full length (a cut after the end).
inline std::vector<size_t> cutOffsets(const Recorded& r, size_t every = 7) {
    std::set<size_t> offsets;
    const size_t head = r.bytes.find("\r\n\r\n") + 4;
    for (size_t i = 0; i <= head; ++i) offsets.insert(i);
    for (size_t d : r.delimiters)
        for (size_t i = d >= 2 ? d - 2 : 0; i <= d + 2 && i <= r.bytes.size(); ++i) offsets.insert(i);
    for (size_t i = 0; i < r.bytes.size(); i += every) offsets.insert(i);
    offsets.insert(r.bytes.size());
    return {offsets.begin(), offsets.end()};
}

// Once the last chunk's line (or the closing delimiter) is in, everything has
// been delivered; what is cut after it is drained and dropped by the reader
// when the response closes, and the next cycle reconnects anyway. A body that
// runs to the end of the connection is complete only with its last byte.
inline size_t completeFrom(const Recorded& r) {
    const std::string closing = "--" + kBoundary + "--";
    if (r.untilClose) return r.multipart ? r.bytes.find(closing) + closing.size() : r.bytes.size();
    if (!r.multipart) {
        const size_t last = r.bytes.rfind("\r\n0\r\n\r\n");
        return last == std::string::npos ? r.bytes.size() : last + 5;
    }
    return r.bytes.find(closing) + closing.size();
}

struct Outcome {
    bool completed = false;
    std::string error;  // "TALVEXException 6", "PNXIOTimeoutException", ...
    bool documented = false;
    bool correct = false;  // completed with the right envelope and attachment
    double seconds = 0;
};

inline MOXIDOM_Element requestEnvelope(MOXIDOM_Document& doc) {
    MOXIDOM_Element env = doc.createElementNS(kSoapNs, "soapenv:Envelope");
    doc.appendChild(env);
    env.appendElementNS(kSoapNs, "soapenv:Body").appendElementNS("urn:talvex:echo", "e:echo").appendText(kText);
    return env;
}

inline void limit(TALVEXSession& s) { s.getSessionSocket()->getInputStream()->setTimeout(1); }

// One request/response cycle through the streaming calls, the time limit set
// before every step that reads (the reader clears it when the envelope closes).
// The documented errors: the socket's (5), the head's (6), the envelope's
// parse (16), the body streams' (20, 27, 28), and the stream exceptions.
inline Outcome cycle(TALVEXSession& s, bool multipart) {
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
        o.documented = c == 5 || c == 6 || c == 16 || c == 20 || c == 27 || c == 28;
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

// The cut cycle, then a reconnect and a cycle against the whole response.
struct Trial {
    Outcome cut;
    Outcome again;
};

template <class ServeWhole>
Trial cutThenRecover(TALVEXSession& s, bool multipart, ServeWhole serveWhole) {
    Trial t;
    t.cut = cycle(s, multipart);
    serveWhole();
    try {
        s.reconnect(5);
        t.again = cycle(s, multipart);
    } catch (MOXThrowable& e) {
        t.again.error = std::string("reconnect: ") + e.getThrowableName();
    }
    return t;
}

constexpr double kAllowedSeconds = 1.0 + 2.0;  // the limit plus slack for a loaded machine

// What every cut must keep. cutShort: the cut falls before everything
// essential was delivered.
inline std::string judge(const Trial& t, bool cutShort) {
    std::string what;
    if (!t.cut.documented) what += "undocumented outcome " + t.cut.error + "; ";
    if (t.cut.completed && !t.cut.correct) what += "completed with wrong content; ";
    if (t.cut.completed && cutShort) what += "completed although cut short; ";
    if (t.cut.seconds > kAllowedSeconds) what += "took " + std::to_string(t.cut.seconds) + " s; ";
    if (!t.again.completed || !t.again.correct) what += "no recovery (" + t.again.error + "); ";
    return what;
}

// Outcomes by kind of cut, the slowest cut, and what misbehaved; shared by the
// workers.
class CutTally {
public:
    void add(const std::string& kind, const std::string& label, const Trial& t, const std::string& problems) {
        std::lock_guard<std::mutex> g(m_lock);
        ++m_cases;
        ++m_tally[kind + " -> " + (t.cut.completed ? "completed" : t.cut.error)];
        double& slowestOfKind = m_slowest_by_kind[kind];
        if (t.cut.seconds > slowestOfKind) slowestOfKind = t.cut.seconds;
        if (t.cut.seconds > m_slowest) {
            m_slowest = t.cut.seconds;
            m_slowest_label = kind + " " + label;
        }
        if (!problems.empty()) m_findings.push_back(kind + " " + label + ": " + problems);
    }
    void fail(const std::string& what) {
        std::lock_guard<std::mutex> g(m_lock);
        m_findings.push_back(what);
    }
    // Prints the tally and fails the test with the findings.
    void report() {
        std::lock_guard<std::mutex> g(m_lock);
        std::ostringstream summary;
        summary << m_cases << " cuts, slowest " << m_slowest << " s (" << m_slowest_label << ")\n";
        for (const auto& [k, n] : m_tally) summary << "  " << k << ": " << n << "\n";
        summary << "slowest by kind:";
        for (const auto& [k, s] : m_slowest_by_kind) summary << " " << k << " " << s << " s;";
        summary << "\n";
        std::cout << summary.str();
        std::ostringstream bad;
        for (const std::string& f : m_findings) bad << f << "\n";
        EXPECT_TRUE(m_findings.empty()) << m_findings.size() << " of " << m_cases << " cuts misbehaved:\n"
                                        << bad.str();
    }

private:
    std::mutex m_lock;
    size_t m_cases = 0;
    std::map<std::string, int> m_tally;
    std::map<std::string, double> m_slowest_by_kind;
    double m_slowest = 0;
    std::string m_slowest_label;
    std::vector<std::string> m_findings;
};

}  // namespace cutfaults

#endif
