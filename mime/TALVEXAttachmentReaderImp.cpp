#include "mime/TALVEXAttachmentReaderImp.h"

#include <cstring>
#include <string>

#include "frame/TALVEXRaise.h"
#include "mime/TALVEXMPInputStream.h"
#include "mime/TALVEXQPInputStream.h"
#include "moxcore/MOXThrow.h"
#include "moxcore/MOXUtConvert.h"

static const char MOX_UNIT[] = "TALVEXAttachmentReaderImp";

TALVEXAttachmentReaderImp::TALVEXAttachmentReaderImp(TALVEXMPInputStream* in, const TALVEXLimits& limits)
    : m_parser(limits), m_decoded(nullptr), m_raw(in) {}

TALVEXAttachmentReaderImp::~TALVEXAttachmentReaderImp() {
    delete m_decoded;
    m_decoded = nullptr;
}

const char* TALVEXAttachmentReaderImp::getContentId() { return m_parser.getContentId().c_str(); }

const char* TALVEXAttachmentReaderImp::getContentType() { return m_parser.getContentType().c_str(); }

int TALVEXAttachmentReaderImp::getContentLength() { return m_parser.getContentLength(); }

const char* TALVEXAttachmentReaderImp::getHeader(const char* name) { return m_parser.getHeader(name); }

int TALVEXAttachmentReaderImp::isGzipEncoded() {
    const char* v = getHeader("content-encoding");
    if (v == nullptr || std::strlen(v) > 4) return 0;
    char lower[5];
    std::strcpy(lower, v);
    MOXUtConvert::strlwr(lower);
    return std::strcmp(lower, "gzip") == 0 ? 1 : 0;
}

PNXInputStream& TALVEXAttachmentReaderImp::getInputStream() {
    const char* v = getHeader("content-transfer-encoding");
    if (v != nullptr && m_decoded == nullptr) {
        std::string lower = std::strlen(v) > 16 ? std::string() : std::string(v);
        MOXUtConvert::strlwr(&lower[0]);
        if (lower == "quoted-printable") {
            m_decoded = MOX_NEW(TALVEXQPInputStream, m_raw);
        } else if (lower == "base64") {
            TALVEX_RAISE_AT(__LINE__, "TALVEXAttachmentReaderImp::getInputStream", ErrTransferEncodingBase64,
                            TALVEXMessage(0xF2A21E8E) << MOXMessageParm(I18NString(v)));
        }
    }
    if (m_decoded != nullptr) return *m_decoded;
    return *m_raw;
}

void TALVEXAttachmentReaderImp::readHeaders() {
    delete m_decoded;
    m_decoded = nullptr;
    m_parser.parsePartHeaders(m_raw);
}
