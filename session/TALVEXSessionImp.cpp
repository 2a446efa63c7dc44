#include "session/TALVEXSessionImp.h"

#include <cstdio>
#include <cstdlib>
#include <exception>

#include "http/TALVEXMessageWriterImp.h"
#include "moxcore/MOXThreadGuard.h"
#include "moxcore/MOXThrow.h"
#include "talvex/TALVEXException.h"
#include "talvex/TALVEXSocketInputStream.h"

static const char MOX_UNIT[] = "TALVEXSessionImp";

namespace {
// Searched in this order; compared exactly.
const char* const kPropertyNames[] = {"boundary", "chunk-size", "send-content-length"};

// The bounds on a response, each settable as a property of its own name.
struct LimitProperty {
    const char* name;
    std::size_t TALVEXLimits::*field;
};
const LimitProperty kLimitProperties[] = {
    {"max-head-line", &TALVEXLimits::maxHeadLine},
    {"max-head-lines", &TALVEXLimits::maxHeadLines},
    {"max-head-size", &TALVEXLimits::maxHeadSize},
    {"max-interim-responses", &TALVEXLimits::maxInterimResponses},
    {"max-envelope-size", &TALVEXLimits::maxEnvelopeSize},
    {"max-xml-depth", &TALVEXLimits::maxXmlDepth},
};
}  // namespace

TALVEXSessionImp::TALVEXSessionImp(TALVEXSocket* socket, const char* uriPath)
    : m_session_sock(socket),
      m_uri_path(uriPath != nullptr ? uriPath : ""),
      m_request_sent(0),
      m_current_writer(nullptr),
      m_current_reader(nullptr),
      m_cycle_failed(false),
      m_lock(0) {}

TALVEXSessionImp::~TALVEXSessionImp() {
    try {
        closeSessionNow();
    } catch (...) {
    }
    m_session_sock = nullptr;
    m_current_writer = nullptr;
    m_current_reader = nullptr;
}

TALVEXSocket* TALVEXSessionImp::getSessionSocket() { return m_session_sock; }

void TALVEXSessionImp::setProperty(const std::string& name, int value) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", value);
    setProperty(name, std::string(text));
}

void TALVEXSessionImp::setProperty(const std::string& name, const std::string& value) {
    MOXThreadGuard guard(m_lock);
    bool known = false;
    for (const char* candidate : kPropertyNames) {
        if (name == candidate) {
            known = true;
            break;
        }
    }
    for (const LimitProperty& limit : kLimitProperties) known = known || name == limit.name;
    if (!known) MOX_THROW_AT(109, MOXIllegalArgumentError, "TALVEXSessionImp::setProperty");
    m_properties[name] = value;
}

TALVEXLimits TALVEXSessionImp::limits() {
    TALVEXLimits limits;
    std::string value;
    for (const LimitProperty& limit : kLimitProperties) {
        if (lookupProperty(limit.name, value)) limits.*limit.field = std::strtoull(value.c_str(), nullptr, 10);
    }
    return limits;
}

bool TALVEXSessionImp::lookupProperty(const char* name, std::string& value) {
    MOXThreadGuard guard(m_lock);
    auto it = m_properties.find(name);
    if (it == m_properties.end()) return false;
    value = it->second;
    return true;
}

void TALVEXSessionImp::echo(const char* sfilename) {
    if (m_session_sock != nullptr) m_session_sock->echo(sfilename);
}

void TALVEXSessionImp::echo(const char* sfilename, const char* mode) {
    if (m_session_sock != nullptr) m_session_sock->echo(sfilename, mode);
}

TALVEXMessageWriter& TALVEXSessionImp::openRequest(int hasAttachments) {
    // Refused before anything goes out: the server might run the request again.
    if (m_cycle_failed)
        MOX_THROW(MOXIllegalStateError, "TALVEXSessionImp::openRequest - the previous request/response cycle failed "
                                        "and the connection cannot be reused: call reconnect first");
    MOX_ASSERT_AT(170, m_current_writer == NULL);
    try {
        int chunked = 1;
        int chunkSize = 0;
        std::string value;
        if (lookupProperty("send-content-length", value) && std::atoi(value.c_str()) != 0)
            chunked = 0;
        else if (lookupProperty("chunk-size", value))
            chunkSize = std::atoi(value.c_str());
        std::string boundary;
        const bool hasBoundary = lookupProperty("boundary", boundary);

        TALVEXMessageWriterImp* writer =
            MOX_NEW_AT(194, TALVEXMessageWriterImp, m_uri_path.c_str(), 1, hasAttachments, m_session_sock, chunked,
                       chunkSize, hasBoundary ? boundary.c_str() : nullptr);
        m_current_writer = writer;
        writer->setHeaders(m_headers);
        if (hasAttachments == 0) writer->setHeadCache(&m_head_cache);
    }
    MOX_RETHROW_AT(199, "TALVEXSessionImp::openRequest")
    m_request_sent = 1;
    return *m_current_writer;
}

void TALVEXSessionImp::closeRequest(TALVEXMessageWriter& w) {
    MOX_ASSERT_AT(208, m_current_writer == &w);
    try {
        m_current_writer->close();
    } catch (...) {
        delete m_current_writer;
        m_current_writer = nullptr;
        m_cycle_failed = true;
        throw;
    }
    delete m_current_writer;
    m_current_writer = nullptr;
}

TALVEXMessageReader& TALVEXSessionImp::openResponse() {
    MOX_ASSERT_AT(224, m_session_sock);
    if (m_request_sent == 0)
        MOX_THROW_AT(229, MOXIllegalStateError, "TALVEXSessionImp::openResponse - no request was sent");
    m_request_sent = 0;
    MOX_ASSERT_AT(233, m_current_reader == NULL);
    try {
        m_current_reader = MOX_NEW_AT(238, TALVEXMessageReaderImp, 0, m_session_sock->getInputStream(), limits());
    }
    MOX_RETHROW_AT(241, "TALVEXSessionImp::openResponse")
    return *m_current_reader;
}

void TALVEXSessionImp::closeResponse(TALVEXMessageReader& r) {
    MOX_ASSERT_AT(249, m_current_reader == &r);
    TALVEXMessageReaderImp* reader = m_current_reader;
    m_current_reader = nullptr;
    if (!reader->drain()) m_cycle_failed = true;  // the reader closed the connection
    delete reader;
}

void TALVEXSessionImp::sendRequest(MOXIDOM_Element& request) {
    TALVEXMessageWriter& w = openRequest(0);
    try {
        w.writeEnvelope(request);
    } catch (...) {
        m_cycle_failed = true;
        throw;
    }
    closeRequest(w);
}

void TALVEXSessionImp::getResponse(MOXIDOM_Node& response) {
    if (m_request_sent == 0)
        MOX_THROW_AT(159, MOXIllegalStateError, "TALVEXSessionImp::getResponse - no request was sent");
    TALVEXMessageReader& r = openResponse();
    try {
        r.getEnvelope(response);
    } catch (...) {
        m_cycle_failed = true;
        throw;
    }
    closeResponse(r);
}

// A server may answer and close before it has read the whole request (a body
// over its limit): when its answer came, that answer is the result, not the
// failed send.
void TALVEXSessionImp::doRequest(MOXIDOM_Element& request, MOXIDOM_Node& response) {
    std::exception_ptr sendFailure;
    try {
        sendRequest(request);
    } catch (TALVEXException& e) {
        if (e.getCode() != TALVEXException::ErrSocket || m_request_sent == 0) throw;
        sendFailure = std::current_exception();
    }
    try {
        getResponse(response);
    } catch (...) {
        const bool answered = m_current_reader != nullptr && m_current_reader->getHeader("talvex-status-code") != nullptr;
        if (sendFailure && !answered) std::rethrow_exception(sendFailure);
        throw;
    }
}

void TALVEXSessionImp::closeSession() { closeSessionNow(); }

// The connection goes first: a reader being deleted drains what is left of its
// response, which on a silent peer would never end; on a closed connection it
// ends at once. Nothing is lost, since the connection is being dropped anyway.
void TALVEXSessionImp::closeSessionNow() {
    if (m_session_sock != nullptr && (m_current_writer != nullptr || m_current_reader != nullptr)) {
        try {
            m_session_sock->close();
        } catch (...) {
        }
    }
    try {
        delete m_current_writer;
    } catch (...) {
    }
    m_current_writer = nullptr;
    try {
        delete m_current_reader;
    } catch (...) {
    }
    m_current_reader = nullptr;
    try {
        delete m_session_sock;
    } catch (...) {
    }
    m_session_sock = nullptr;
}

void TALVEXSessionImp::reconnect(int timeLimitSec) {
    if (m_session_sock != nullptr && (m_current_writer != nullptr || m_current_reader != nullptr)) {
        try {
            m_session_sock->close();  // see closeSessionNow
        } catch (...) {
        }
    }
    try {
        delete m_current_writer;
    } catch (...) {
    }
    m_current_writer = nullptr;
    try {
        delete m_current_reader;
    } catch (...) {
    }
    m_current_reader = nullptr;
    MOX_ASSERT_AT(84, m_session_sock != NULL);
    try {
        m_session_sock->close();
    } catch (...) {
    }
    m_session_sock->open(timeLimitSec);
    m_cycle_failed = false;
}

void TALVEXSessionImp::setHeader(const std::string& name, const std::string& value) { m_headers[name] = value; }

void TALVEXSessionImp::removeHeader(const std::string& name) { m_headers.erase(name); }

void TALVEXSessionImp::clearHeaders() { m_headers.clear(); }
