#include "http/TALVEXMessageWriterImp.h"

#include <cstdio>
#include <cstring>

#include "http/TALVEXDomWriter.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXThrow.h"
#include "moxhttptools/MultipartHttpMsg.h"
#include "moxhttptools/OnePieceHttpMsg.h"
#include "moxidom/MOXIDOM_Helper.h"
#include "talvex/TALVEXSocket.h"

static const char MOX_UNIT[] = "TALVEXMessageWriterImp";

namespace {
const char kDefaultBoundary[] = "=_=vorna-mp-boundary=_=";
const char kPreEncodedQuotedPrintable[] = "text/vornatk-pre-encoded-quoted-printable";
}  // namespace

TALVEXMessageWriterImp::TALVEXMessageWriterImp(const char* _uri_path, int isRequest, int hasAttachments,
                                               TALVEXSocket* sock, int chunked, int chunkSize, const char* boundary)
    : TALVEXMessageWriter(isRequest, hasAttachments),
      m_chunk_size(0),
      m_sock(sock),
      m_uri_path(_uri_path != nullptr ? _uri_path : ""),
      m_boundary(boundary != nullptr ? boundary : kDefaultBoundary),
      m_op_sender(nullptr),
      m_mp_sender(nullptr),
      m_part(nullptr),
      m_content_id_counter(0),
      m_head_cache(nullptr),
      m_head_cache_use(0),
      m_envelope_opened(false) {
    MOX_ASSERT(m_sock);
    MOX_ASSERT(_uri_path);

    if (chunked != 0) m_chunk_size = chunkSize < 2 ? 4000 : chunkSize;

    PNXOutputStream& out = *m_sock->getOutputStream();
    HttpMsgNode* sender;
    if (!m_has_attachments) {
        m_op_sender = MOX_NEW(OnePieceHttpMsg, out, m_chunk_size);
        sender = m_op_sender;
    } else {
        m_mp_sender = MOX_NEW(MultipartHttpMsg, out, m_chunk_size, m_boundary.c_str());
        sender = m_mp_sender;
    }
    if (m_is_request) {
        // Servers need a Host header; the connection knows the authority.
        sender->setAuthority(m_sock->getAuthority().c_str());
        sender->startRequest(m_uri_path.c_str(), 0);
    }
}

TALVEXMessageWriterImp::~TALVEXMessageWriterImp() {
    if (m_op_sender != nullptr || m_mp_sender != nullptr) {
        try {
            close();
        } catch (...) {
        }
    }
    try {
        delete m_part;
    } catch (...) {
    }
    m_part = nullptr;
    deleteSenders();
    m_sock = nullptr;
}

void TALVEXMessageWriterImp::deleteSenders() {
    try {
        delete m_mp_sender;
    } catch (...) {
    }
    m_mp_sender = nullptr;
    try {
        delete m_op_sender;
    } catch (...) {
    }
    m_op_sender = nullptr;
}

void TALVEXMessageWriterImp::applyHeaders(HttpMsgNode* sender) {
    MOX_ASSERT(NULL != sender);
    for (const auto& header : m_headers) sender->setHeader(header.first.c_str(), header.second.c_str());
}

PNXOutputStream& TALVEXMessageWriterImp::openEnvelope() { return openEnvelope("\"\""); }

void TALVEXMessageWriterImp::applyEnvelopeHeaders(const char* soapAction,
                                                  const std::map<std::string, std::string>& headers) {
    m_op_sender->setHeader("SOAPAction", soapAction);
    m_op_sender->setHeader("Content-Type", "text/xml; charset=UTF-8");
    m_op_sender->setHeader("Content-ID", "envelope");
    for (const auto& header : headers) m_op_sender->setHeader(header.first.c_str(), header.second.c_str());
}

PNXOutputStream& TALVEXMessageWriterImp::openEnvelope(const char* soapAction) {
    if (!m_has_attachments) {
        MOX_ASSERT(m_op_sender);
        if (m_is_request && m_head_cache != nullptr) {
            const bool first = !m_envelope_opened;
            m_envelope_opened = true;
            // A null action is sent as an empty value, as "" is.
            const char* action = soapAction != nullptr ? soapAction : "";
            if (m_head_cache_use == 1) {
                // Opened again: the head is built the ordinary way after all,
                // with the first opening's headers first (and fails as it would
                // if the head is already out).
                m_op_sender->useHead(nullptr);
                m_head_cache_use = 0;
                applyEnvelopeHeaders(m_head_cache->soapAction.c_str(), m_head_cache->headers);
                applyEnvelopeHeaders(soapAction, m_headers);
            } else if (first && m_head_cache->valid && m_head_cache->soapAction == action &&
                       m_head_cache->headers == m_headers && m_head_cache->authority == m_sock->getAuthority()) {
                m_op_sender->useHead(&m_head_cache->head);
                m_head_cache_use = 1;
            } else {
                applyEnvelopeHeaders(soapAction, m_headers);
                if (first) {
                    m_head_cache->valid = false;
                    m_head_cache->authority = m_sock->getAuthority();
                    m_head_cache->soapAction = action;
                    m_head_cache->headers = m_headers;
                    m_head_cache_use = 2;
                } else {
                    m_head_cache_use = 0;  // opened twice: not a head to keep
                }
            }
            m_body.setOutputStream(&m_op_sender->body);
            m_body.setEnabled(1);
            return m_body;
        }
        if (m_is_request) {
            m_op_sender->setHeader("SOAPAction", soapAction);
        } else {
            m_op_sender->startResponse(m_status, m_reason);
            m_status_line_sent = 1;
        }
        m_op_sender->setHeader("Content-Type", "text/xml; charset=UTF-8");
        m_op_sender->setHeader("Content-ID", "envelope");
        applyHeaders(m_op_sender);
        m_body.setOutputStream(&m_op_sender->body);
        m_body.setEnabled(1);
        return m_body;
    }
    MOX_ASSERT(m_mp_sender);
    if (m_is_request) {
        m_mp_sender->setHeader("SOAPAction", soapAction);
    } else {
        m_mp_sender->startResponse(m_status, m_reason);
        m_status_line_sent = 1;
    }
    return openAttachment("text/xml", "UTF-8", "envelope", 0);
}

void TALVEXMessageWriterImp::closeEnvelope(PNXOutputStream& stream) {
    if (!m_has_attachments) {
        m_body.setEnabled(0);
        return;
    }
    closeAttachment(stream);
}

void TALVEXMessageWriterImp::writeEnvelope(const MOXIDOM_Node& envelope) {
    PNXOutputStream& stream = openEnvelope();
    {
        TALVEXDomWriter writer(&stream);
        MOXIDOM_Helper::write(envelope, writer);
    }
    closeEnvelope(stream);
}

PNXOutputStream& TALVEXMessageWriterImp::openAttachment(const char* contentType, const char* charset,
                                                        const char* headers, const char* contentId, int pieceFlag) {
    if (!m_has_attachments)
        MOX_THROW(MOXIllegalStateError,
                  "TALVEXMessageWriterImp::openAttachment - the writer instance was not constructed for attachments");
    if (m_part != nullptr)
        MOX_THROW(MOXIllegalStateError, "TALVEXMessageWriterImp::openAttachment - must close prior attachment first");
    MOX_ASSERT(m_mp_sender != NULL);

    m_part = m_mp_sender->addOnePiece(pieceFlag == 1 ? -1 : 0);

    MOXByteBuffer type(256, 256);
    type << contentType;
    if (charset != nullptr) type << "; charset=" << charset;
    m_part->setHeader("Content-Type", type.str());
    m_part->setHeader("Content-ID", contentId);
    applyHeaders(m_part);
    const bool preEncoded = contentType != nullptr && std::strcmp(contentType, kPreEncodedQuotedPrintable) == 0;
    m_part->setHeader("Content-Transfer-Encoding", preEncoded ? "Quoted-Printable" : "Binary");

    if (headers != nullptr) {
        // The caller's header text, cut into lines at CR LF; a line without a
        // colon runs into the next header's name, as written.
        MOXByteBuffer copy(64, 64);
        copy << headers;
        const std::string text(copy.str(), copy.pcount());
        size_t pos = 0;
        while (pos < text.size()) {
            size_t colon = text.find(':', pos);
            if (colon == std::string::npos) break;
            std::string name = text.substr(pos, colon - pos);
            size_t valueStart = colon + 1;
            if (valueStart >= text.size()) break;
            size_t lineEnd = text.find("\r\n", valueStart);
            if (lineEnd == std::string::npos) {
                m_part->setHeader(name.c_str(), text.substr(valueStart).c_str());
                break;
            }
            m_part->setHeader(name.c_str(), text.substr(valueStart, lineEnd - valueStart).c_str());
            pos = lineEnd + 2;
        }
    }

    m_body.setOutputStream(&m_part->body);
    m_body.setEnabled(1);
    return m_body;
}

PNXOutputStream& TALVEXMessageWriterImp::openAttachment(const char* contentType, const char* charset,
                                                        const char* contentId, int) {
    return openAttachment(contentType, charset, nullptr, contentId, 0);
}

void TALVEXMessageWriterImp::closeAttachment(PNXOutputStream&) {
    MOX_ASSERT(m_has_attachments);
    MOX_ASSERT(m_mp_sender);
    m_body.setEnabled(0);
    // A failing endPart leaves the part with us; the destructor deletes it.
    m_mp_sender->endPart(m_part);
    m_part = nullptr;
}

void TALVEXMessageWriterImp::writeAttachment(const char* contentType, const char* charset, const char* headers,
                                             const char* data, unsigned int length, const char* contentId) {
    PNXOutputStream& stream = openAttachment(contentType, charset, headers, contentId, 0);
    stream.write(data, length);
    closeAttachment(stream);
}

void TALVEXMessageWriterImp::writeAttachment(const char* contentType, const char* charset, const char* data,
                                             unsigned int length, const char* contentId) {
    PNXOutputStream& stream = openAttachment(contentType, charset, contentId, 0);
    stream.write(data, length);
    closeAttachment(stream);
}

void TALVEXMessageWriterImp::writeAttachment(const MOXIDOM_Node& node, const char* contentId) {
    PNXOutputStream& stream = openAttachment("text/xml", "UTF_8", contentId, 0);
    {
        TALVEXDomWriter writer(&stream);
        MOXIDOM_Helper::write(node, writer);
    }
    closeAttachment(stream);
}

std::string* TALVEXMessageWriterImp::newContentId() {
    ++m_content_id_counter;
    char text[24];
    std::snprintf(text, sizeof text, "%lu", static_cast<unsigned long>(m_content_id_counter));
    return MOX_NEW(std::string, text);
}

void TALVEXMessageWriterImp::close() {
    try {
        if (m_part != nullptr)
            MOX_THROW(MOXIllegalStateError,
                      "TALVEXMessageWriterImp::close - envelope or attachment was not yet closed");
        if (m_has_attachments) {
            MOX_ASSERT(m_mp_sender);
            m_mp_sender->finish();
        } else {
            MOX_ASSERT(m_op_sender);
            m_op_sender->finish();
            if (m_head_cache_use == 2 && m_head_cache != nullptr) {
                m_head_cache->head = m_op_sender->sentHead();
                m_head_cache->valid = true;
            }
        }
    } catch (MOXThrowable& t) {
        deleteSenders();
        t.addBackTrace(MOX_HERE, "TALVEXMessageWriterImp::close", "MOX_RETHROW");
        throw;
    } catch (...) {
        deleteSenders();
        throw;
    }
    deleteSenders();
}

void TALVEXMessageWriterImp::setResponseStatus(int status, const char* reason) {
    if (m_is_request)
        MOX_THROW(MOXIllegalStateError,
                  "TALVEXMessageWriterImp::setResponseStatus - you can't set response status for a request");
    if (m_status_line_sent)
        MOX_THROW(MOXIllegalStateError, "TALVEXMessageWriterImp::setResponseStatus - the status line was already sent");
    m_status = status;
    std::snprintf(m_reason, sizeof m_reason, "%s", reason != nullptr ? reason : "unknown reason");
}

void TALVEXMessageWriterImp::setHeader(const std::string& name, const std::string& value) { m_headers[name] = value; }

void TALVEXMessageWriterImp::setHeaders(const std::map<std::string, std::string>& headers) {
    if (&headers != &m_headers) m_headers = headers;
}

void TALVEXMessageWriterImp::removeHeader(const std::string& name) { m_headers.erase(name); }
