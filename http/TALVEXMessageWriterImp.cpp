#include "http/TALVEXMessageWriterImp.h"

#include <cstdio>
#include <cstring>

#include "http/TALVEXDomWriter.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXThrow.h"
#include "moxhttptools/HTTPHeader.h"
#include "moxhttptools/HTTPMessage.h"
#include "moxhttptools/MultipartHttpMsg.h"
#include "moxhttptools/OnePieceHttpMsg.h"
#include "moxidom/MOXIDOM_Element.h"
#include "moxidom/MOXIDOM_Helper.h"
#include "platform/random.h"
#include "talvex/TALVEXSocket.h"

static const char MOX_UNIT[] = "TALVEXMessageWriterImp";

namespace {
// "=_" cannot occur in quoted-printable text, and the random part makes a
// collision with any content, earlier messages' delimiters included, unlikely
// beyond concern (2^-128).
const char kBoundaryPrefix[] = "=_=talvex-mp-";
const unsigned kBoundaryRandomBytes = 16;
const char kPreEncodedQuotedPrintable[] = "text/vornatk-pre-encoded-quoted-printable";
const char kSoap11Type[] = "text/xml; charset=UTF-8";
const char kSoap12Type[] = "application/soap+xml; charset=UTF-8";
const char kSoap12MediaType[] = "application/soap+xml";
const char kSoap12Namespace[] = "http://www.w3.org/2003/05/soap-envelope";

std::string freshBoundary() {
    unsigned char random[kBoundaryRandomBytes];
    if (!RtlGenRandom(random, sizeof random))
        MOX_THROW(MOXIllegalStateError, "TALVEXMessageWriterImp::freshBoundary - the random source failed");
    static const char hex[] = "0123456789abcdef";
    std::string boundary = kBoundaryPrefix;
    for (unsigned char byte : random) {
        boundary += hex[byte >> 4];
        boundary += hex[byte & 0x0F];
    }
    return boundary;
}

// The caller's value of a header (name in any case), or null.
const std::string* findHeader(const std::map<std::string, std::string>& headers, const char* name) {
    for (const auto& header : headers) {
        if (HTTPMessage::equalsIgnoreCase(header.first, name)) return &header.second;
    }
    return nullptr;
}

// Headers the writer puts where the envelope's type and action belong.
bool isEnvelopeHeader(const std::string& name) {
    return HTTPMessage::equalsIgnoreCase(name, "Content-Type") || HTTPMessage::equalsIgnoreCase(name, "SOAPAction");
}

// An action without the double quotes SOAPAction wants around it.
std::string unquoted(const char* action) {
    std::string text = action != nullptr ? action : "";
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') return text.substr(1, text.size() - 2);
    return text;
}

bool isSoap12MediaType(const char* type) {
    HTTPHeader parsed;
    parsed.parse(type);
    return HTTPMessage::equalsIgnoreCase(parsed.getValue(), kSoap12MediaType);
}

bool isSoap12Envelope(const MOXIDOM_Node& envelope) {
    const MOXIDOM_Node root = envelope.isElement() ? envelope : MOXIDOM_Node(envelope.getFirstChildElement());
    return root.getNamespaceURI() == kSoap12Namespace;
}
}  // namespace

TALVEXMessageWriterImp::TALVEXMessageWriterImp(const char* _uri_path, int isRequest, int hasAttachments,
                                               TALVEXSocket* sock, int chunked, int chunkSize, const char* boundary)
    : TALVEXMessageWriter(isRequest, hasAttachments),
      m_chunk_size(0),
      m_sock(sock),
      m_uri_path(_uri_path != nullptr ? _uri_path : ""),
      m_boundary(boundary != nullptr ? boundary : ""),
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
        if (boundary == nullptr) m_boundary = freshBoundary();
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

void TALVEXMessageWriterImp::applyHeaders(HttpMsgNode* sender, const std::map<std::string, std::string>& headers) {
    MOX_ASSERT(NULL != sender);
    for (const auto& header : headers) {
        if (!isEnvelopeHeader(header.first)) sender->setHeader(header.first.c_str(), header.second.c_str());
    }
}

TALVEXMessageWriterImp::EnvelopeType TALVEXMessageWriterImp::envelopeType(
    const char* soapAction, bool soap12, const std::map<std::string, std::string>& headers) const {
    const std::string* callerAction = findHeader(headers, "SOAPAction");
    const char* action = callerAction != nullptr ? callerAction->c_str() : soapAction;
    const std::string* callerType = findHeader(headers, "Content-Type");
    EnvelopeType type;
    bool soap12Type = soap12;
    bool hasAction = false;
    if (callerType == nullptr) {
        type.contentType = soap12 ? kSoap12Type : kSoap11Type;
    } else {
        type.contentType = *callerType;
        HTTPHeader parsed;
        parsed.parse(callerType->c_str());
        soap12Type = isSoap12MediaType(parsed.getValue());
        const char* wrapped = parsed.getAttribute("type");  // the root's own type (XOP)
        soap12 = soap12Type || (wrapped != nullptr && isSoap12MediaType(wrapped));
        hasAction = parsed.getAttribute("action") != nullptr;
    }
    if (!soap12) {
        // SOAP 1.1: the action goes in its own header.
        type.sendAction = m_is_request != 0;
        type.action = action;
        return type;
    }
    // SOAP 1.2: the action is a parameter of the type, and there is no
    // SOAPAction. A caller who wraps the envelope (XOP) gives it in the type.
    const std::string bare = unquoted(action);
    if (m_is_request && soap12Type && !hasAction && !bare.empty()) {
        type.contentType += "; action=";
        HTTPMessage::appendQuoted(type.contentType, bare);
    }
    return type;
}

void TALVEXMessageWriterImp::applyEnvelopeHeaders(const char* soapAction, bool soap12,
                                                  const std::map<std::string, std::string>& headers) {
    const EnvelopeType type = envelopeType(soapAction, soap12, headers);
    if (type.sendAction) m_op_sender->setHeader("SOAPAction", type.action);
    m_op_sender->setHeader("Content-Type", type.contentType.c_str());
    m_op_sender->setHeader("Content-ID", "envelope");
    applyHeaders(m_op_sender, headers);
}

PNXOutputStream& TALVEXMessageWriterImp::openEnvelope() { return openEnvelope("\"\""); }

PNXOutputStream& TALVEXMessageWriterImp::openEnvelope(const char* soapAction) {
    return openEnvelopeAs(soapAction, false);
}

PNXOutputStream& TALVEXMessageWriterImp::openEnvelopeAs(const char* soapAction, bool soap12) {
    if (!m_has_attachments) {
        MOX_ASSERT(m_op_sender);
        if (m_is_request && m_head_cache != nullptr) return openCachedEnvelope(soapAction, soap12);
        if (!m_is_request) {
            m_op_sender->startResponse(m_status, m_reason);
            m_status_line_sent = 1;
        }
        applyEnvelopeHeaders(soapAction, soap12, m_headers);
        m_body.setOutputStream(&m_op_sender->body);
        m_body.setEnabled(1);
        return m_body;
    }
    MOX_ASSERT(m_mp_sender);
    if (!m_is_request) {
        m_mp_sender->startResponse(m_status, m_reason);
        m_status_line_sent = 1;
    }
    // The extra headers belong to the HTTP head (credentials, cookies), not
    // to the parts; the envelope's type becomes the root part's.
    const EnvelopeType type = envelopeType(soapAction, soap12, m_headers);
    if (type.sendAction) m_mp_sender->setHeader("SOAPAction", type.action);
    applyHeaders(m_mp_sender, m_headers);
    HTTPHeader parsed;
    parsed.parse(type.contentType.c_str());
    m_mp_sender->setRootType(parsed.getValue(), parsed.getAttribute("type"));
    return openAttachment(type.contentType.c_str(), nullptr, "envelope", 0);
}

PNXOutputStream& TALVEXMessageWriterImp::openCachedEnvelope(const char* soapAction, bool soap12) {
    const bool first = !m_envelope_opened;
    m_envelope_opened = true;
    // A null action is sent as an empty value, as "" is.
    const char* action = soapAction != nullptr ? soapAction : "";
    if (m_head_cache_use == 1) {
        // Opened again: the head is built the ordinary way after all, with
        // the first opening's headers first (and fails as it would if the
        // head is already out).
        m_op_sender->useHead(nullptr);
        m_head_cache_use = 0;
        applyEnvelopeHeaders(m_head_cache->soapAction.c_str(), m_head_cache->soap12, m_head_cache->headers);
        applyEnvelopeHeaders(soapAction, soap12, m_headers);
    } else if (first && m_head_cache->valid && m_head_cache->soapAction == action && m_head_cache->soap12 == soap12 &&
               m_head_cache->headers == m_headers && m_head_cache->authority == m_sock->getAuthority()) {
        m_op_sender->useHead(&m_head_cache->head);
        m_head_cache_use = 1;
    } else {
        applyEnvelopeHeaders(soapAction, soap12, m_headers);
        if (first) {
            m_head_cache->valid = false;
            m_head_cache->authority = m_sock->getAuthority();
            m_head_cache->soapAction = action;
            m_head_cache->soap12 = soap12;
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

void TALVEXMessageWriterImp::closeEnvelope(PNXOutputStream& stream) {
    if (!m_has_attachments) {
        m_body.setEnabled(0);
        return;
    }
    closeAttachment(stream);
}

void TALVEXMessageWriterImp::writeEnvelope(const MOXIDOM_Node& envelope) {
    PNXOutputStream& stream = openEnvelopeAs("\"\"", isSoap12Envelope(envelope));
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
