#include "mime/TALVEXMessageReaderImp.h"

#include "frame/TALVEXRaise.h"
#include "mime/TALVEXAttachmentReaderImp.h"
#include "mime/TALVEXMPInputStream.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXThrow.h"
#include "moxidom/MOXIDOM_DOMException.h"
#include "moxidom/MOXIDOM_Parser.h"
#include "pnxstreams/PNXBlockInputStream.h"
#include "pnxstreams/PNXBufferedInputStream.h"
#include "pnxstreams/PNXChunkedInputStream.h"

static const char MOX_UNIT[] = "TALVEXMessageReaderImp";

TALVEXMessageReaderImp::TALVEXMessageReaderImp(int request, PNXInputStream* in, const TALVEXLimits& limits)
    : TALVEXMessageReader(request),
      m_limits(limits),
      m_more_parts(0),
      m_head_read(false),
      m_drained(false),
      m_caller_timeout(0),
      m_caller_cancel(0),
      m_parser(m_limits),
      m_original_is(in),
      m_buffered(nullptr),
      m_chunked(nullptr),
      m_block(nullptr),
      m_attachment(nullptr),
      m_multipart(nullptr),
      m_body(nullptr) {}

TALVEXMessageReaderImp::~TALVEXMessageReaderImp() {
    drain();
    try {
        delete m_attachment;
    } catch (...) {
    }
    try {
        delete m_multipart;
    } catch (...) {
    }
    try {
        delete m_chunked;
    } catch (...) {
    }
    try {
        delete m_block;
    } catch (...) {
    }
    try {
        delete m_buffered;
    } catch (...) {
    }
    m_attachment = nullptr;
    m_multipart = nullptr;
    m_chunked = nullptr;
    m_block = nullptr;
    m_buffered = nullptr;
    m_body = nullptr;
    m_original_is = nullptr;
}

bool TALVEXMessageReaderImp::drain() {
    if (m_drained || m_buffered == nullptr) return true;
    m_drained = true;
    // A head cut short leaves the connection somewhere inside it.
    if (m_head_read) {
        try {
            if (m_original_is->getCancel() == 0 && m_original_is->getTimeout() == 0) {
                if (m_caller_cancel)
                    m_original_is->setCancel(1);
                else if (m_caller_timeout > 0)
                    m_original_is->setTimeout(m_caller_timeout);
            }
            skipRest();
            resetStreamSettings();
            return true;
        } catch (...) {
        }
    }
    // Where the next message would start is unknown: nothing may read it. A
    // server keeps its connection to answer the request it could not read.
    try {
        resetStreamSettings();
        if (isRequest == 0) m_original_is->close();
    } catch (...) {
    }
    return false;
}

void TALVEXMessageReaderImp::skipRest() {
    MOXByteBuffer scratch(64, 64);
    // Parts the caller left; the stream settings stay as they are meanwhile.
    while (hasMoreAttachments()) {
        openNextAttachment();
        m_more_parts = m_multipart->hasNextPart();
    }
    if (m_multipart != nullptr) m_multipart->unWrap();
    if (m_chunked != nullptr) {
        while (m_chunked->read(scratch, 64) != PNX_EOF) scratch.reset();
        // The trailer, up to its empty line and within the head bounds.
        m_parser.skipTrailer(m_buffered);
    }
    if (m_block != nullptr) {
        while (m_block->read(scratch, 64) != PNX_EOF) scratch.reset();
    }
}

PNXInputStream& TALVEXMessageReaderImp::openEnvelope() {
    MOX_ASSERT(NULL != m_original_is);
    if (m_buffered != nullptr)
        MOX_THROW(MOXIllegalStateError, "TALVEXMessageReaderImp::openEnvelope - the envelope was already opened");

    m_buffered = MOX_NEW(PNXBufferedInputStream, *m_original_is, 1024);
    if (isRequest)
        m_parser.parseRequest(m_buffered);
    else
        m_parser.parseResponse(m_buffered);
    m_head_read = true;

    if (m_parser.isChunked()) {
        m_chunked = MOX_NEW(PNXChunkedInputStream, *m_buffered);
        m_body = m_chunked;
    } else if (m_parser.getContentLength() != 0) {
        m_block = MOX_NEW(PNXBlockInputStream, *m_buffered);
        m_block->setBlockLength(m_parser.getContentLength());
        m_body = m_block;
    } else {
        m_body = m_buffered;  // to the end of the connection
    }

    if (m_parser.isMultipart()) {
        // A body that opens with "--" and the boundary then matches the
        // delimiter pattern, which starts with CR LF.
        m_body->unread("\r\n", 2);
        m_multipart = MOX_NEW(TALVEXMPInputStream, m_body, m_parser.getBoundary());
        m_attachment = MOX_NEW(TALVEXAttachmentReaderImp, m_multipart, m_limits);
        openNextAttachment();
        m_body = &m_attachment->getInputStream();
    }
    return *m_body;
}

void TALVEXMessageReaderImp::getEnvelope(MOXIDOM_Node& node) {
    PNXInputStream& s = openEnvelope();
    MOXIDOM_Parser parser(0);
    parser.setLimits(m_limits.maxEnvelopeSize, m_limits.maxXmlDepth);
    int parsed;
    try {
        // Built straight under node, in its document: the envelope is never copied.
        parsed = parser.parseInto(s, node);
    } catch (MOXIDOM_DOMException& e) {
        TALVEX_RAISE_AT(__LINE__, "TALVEXMessageReaderImp::getEnvelope", ErrEnvelopeDom,
                        TALVEXMessage(0xF2A3D9EB) << MOXMessageParm(e.getCode(), MOX_PARM_DECIMAL));
    }
    if (parsed == 0) {
        TALVEXException e(MOX_SEVERITY_ERROR, TALVEXException::ErrEnvelopeParse);
        e << (TALVEXMessage(0xF2AB0DAF) << MOXMessageParm(parser.getCurrentLineNumber(), MOX_PARM_DECIMAL)
                                        << MOXMessageParm(parser.getCurrentColumnNumber(), MOX_PARM_DECIMAL)
                                        << MOXMessageParm(parser.getErrorCode(), MOX_PARM_DECIMAL))
          << MOXMessageString(I18NString(parser.errorString()));
        // An error page (a proxy's HTML, a server's plain text) is what fails
        // most often here: what the server said matters more than the parser.
        const std::string status = errorStatus();
        if (!status.empty()) e << MOXMessageString(I18NString(status.c_str()));
        e.hurl(MOX_HERE, "TALVEXMessageReaderImp::getEnvelope", "MOX_THROW");
    }
    closeEnvelope(s);
}

std::string TALVEXMessageReaderImp::errorStatus() {
    const char* code = getHeader("talvex-status-code");
    if (isRequest || code == nullptr || code[0] == '2') return std::string();
    const char* reason = getHeader("talvex-reason-phrase");
    const char* type = getHeader("content-type");
    return std::string("The server answered HTTP ") + code + " " + (reason != nullptr ? reason : "") +
           (type != nullptr ? std::string(" (") + type + ")" : std::string(" (no Content-Type)"));
}

void TALVEXMessageReaderImp::resetStreamSettings() {
    m_caller_cancel = m_original_is->getCancel();
    if (m_caller_cancel) m_original_is->setCancel(0);
    m_caller_timeout = m_original_is->getTimeout();
    if (m_caller_timeout) m_original_is->setTimeout(0);
}

void TALVEXMessageReaderImp::closeEnvelope(PNXInputStream&) {
    if (m_multipart != nullptr && m_attachment != nullptr) {
        closeAttachment(*m_attachment);
        return;
    }
    resetStreamSettings();
}

int TALVEXMessageReaderImp::isMultipart() { return m_parser.isMultipart(); }

int TALVEXMessageReaderImp::hasMoreAttachments() {
    return (isMultipart() && m_attachment != nullptr && m_multipart != nullptr && m_more_parts == 1) ? 1 : 0;
}

TALVEXAttachmentReader& TALVEXMessageReaderImp::openNextAttachment() {
    if (m_multipart == nullptr || m_attachment == nullptr)
        MOX_THROW(MOXIllegalStateError, "not processing multipart HTTP message");
    if (m_multipart->hasNextPart())
        m_multipart->nextPart();
    else
        TALVEX_RAISE_AT(__LINE__, "TALVEXMessageReaderImp::openNextAttachment", ErrNoMoreAttachments,
                        TALVEXMessage(0xF2A5DBAD));
    m_attachment->readHeaders();
    return *m_attachment;
}

void TALVEXMessageReaderImp::closeAttachment(TALVEXAttachmentReader&) {
    // Skipping to the next delimiter reads from the connection: it runs under
    // the caller's time limit or cancel mode, which are cleared afterwards on
    // every way out, so a silent peer cannot hold the reader.
    try {
        if (m_multipart != nullptr) m_more_parts = m_multipart->hasNextPart();
    } catch (...) {
        resetStreamSettings();
        throw;
    }
    resetStreamSettings();
}

const char* TALVEXMessageReaderImp::getHeader(const char* name) { return m_parser.getHeader(name); }
