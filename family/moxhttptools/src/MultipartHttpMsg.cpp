#include "moxhttptools/MultipartHttpMsg.h"

#include <cstring>

#include "HttpWireWriter.h"
#include "moxcore/MOXThrow.h"
#include "moxhttptools/HTTPMessage.h"
#include "moxhttptools/OnePieceHttpMsg.h"

static const char MOX_UNIT[] = "MultipartHttpMsg";

namespace {

// RFC 2046 bchars.
bool isBoundaryChar(unsigned char c) {
    if ((c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')) return true;
    return c != '\0' && std::strchr("'()+_,-./:=? ", c) != nullptr;
}

std::string checkedBoundary(const char* boundary) {
    if (!MultipartHttpMsg::isValidBoundary(boundary)) {
        MOX_THROW(MOXIllegalArgumentError,
                  "MultipartHttpMsg::MultipartHttpMsg - boundary must be 1 to 70 boundary characters");
    }
    return boundary;
}

unsigned checkedChunkSize(int chunkSize) {
    if (chunkSize < 0) {
        MOX_THROW(MOXIllegalArgumentError, "MultipartHttpMsg::MultipartHttpMsg - chunk size is negative");
    }
    return static_cast<unsigned>(chunkSize);
}

}  // namespace

bool MultipartHttpMsg::isValidBoundary(const char* boundary) {
    const std::string value = boundary != nullptr ? boundary : "";
    bool valid = !value.empty() && value.size() <= 70 && value.back() != ' ';
    for (char c : value) valid = valid && isBoundaryChar(static_cast<unsigned char>(c));
    return valid;
}

MultipartHttpMsg::MultipartHttpMsg(PNXOutputStream& out, int chunkSize, const char* boundary)
    : HttpMsgNode(false), m_boundary(checkedBoundary(boundary)), m_root_type("text/xml"), m_open_part(nullptr),
      m_any_part(false), m_finished(false) {
    m_wire.reset(new HttpWireWriter(out, checkedChunkSize(chunkSize)));
}

MultipartHttpMsg::~MultipartHttpMsg() {
    // The caller may delete an open part after this message; it must not call back.
    if (m_open_part != nullptr) m_open_part->m_parent = nullptr;
}

bool MultipartHttpMsg::isOwnHeader(const std::string& name) const {
    for (const char* own : {"Content-Length", "Transfer-Encoding", "Content-Type", "MIME-Version"}) {
        if (HTTPMessage::equalsIgnoreCase(name, own)) return true;
    }
    return false;
}

void MultipartHttpMsg::startBody() {
    if (m_wire->isBodyStarted()) return;
    std::string head;
    composeHead(head);
    head += "MIME-Version: 1.0\r\nContent-Type: multipart/related; type=";
    HTTPMessage::appendQuoted(head, m_root_type);
    if (!m_start_info.empty()) {
        head += "; start-info=";
        HTTPMessage::appendQuoted(head, m_start_info);
    }
    head += "; boundary=\"";
    head += m_boundary;
    head += "\"\r\n";
    m_wire->startBody(head);
}

void MultipartHttpMsg::setRootType(const char* type, const char* startInfo) {
    if (isHeadWritten()) MOX_THROW(MOXIllegalStateError, "MultipartHttpMsg::setRootType - the head was already written");
    if (type == nullptr || *type == '\0') {
        MOX_THROW(MOXIllegalArgumentError, "MultipartHttpMsg::setRootType - the type is empty");
    }
    m_root_type = lineSafe(type);
    m_start_info = lineSafe(startInfo);
}

OnePieceHttpMsg* MultipartHttpMsg::addOnePiece(int flag) {
    if (flag != -1 && flag != 0) {
        MOX_THROW(MOXIllegalArgumentError, "MultipartHttpMsg::addOnePiece - flag must be -1 or 0");
    }
    if (m_finished) MOX_THROW(MOXIllegalStateError, "MultipartHttpMsg::addOnePiece - the message is finished");
    if (m_open_part != nullptr) {
        MOX_THROW(MOXIllegalStateError, "MultipartHttpMsg::addOnePiece - the open part was not ended");
    }
    std::unique_ptr<OnePieceHttpMsg> part(MOX_NEW(OnePieceHttpMsg, *this));
    try {
        startBody();
        std::string delimiter = m_any_part ? "\r\n--" : "--";
        delimiter += m_boundary;
        delimiter += "\r\n";
        m_wire->write(delimiter.data(), delimiter.size());
    }
    MOX_RETHROW("MultipartHttpMsg::addOnePiece")
    m_any_part = true;
    m_open_part = part.release();
    return m_open_part;
}

void MultipartHttpMsg::writePartHead(OnePieceHttpMsg& part) {
    std::string head = part.takePartHead();
    m_wire->write(head.data(), head.size());
}

void MultipartHttpMsg::writePartContent(OnePieceHttpMsg& part, const char* data, unsigned int length) {
    if (&part != m_open_part) MOX_THROW(MOXIllegalStateError, "OnePieceHttpMsg::write - the part was ended");
    try {
        if (!part.isHeadWritten()) writePartHead(part);
        m_wire->write(data, length);
    }
    MOX_RETHROW("OnePieceHttpMsg::write")
}

void MultipartHttpMsg::forgetPart(OnePieceHttpMsg& part) {
    if (&part == m_open_part) m_open_part = nullptr;
}

void MultipartHttpMsg::endPart(OnePieceHttpMsg* part) {
    if (part == nullptr) return;
    if (part != m_open_part) {
        MOX_THROW(MOXIllegalArgumentError, "MultipartHttpMsg::endPart - not the open part of this message");
    }
    try {
        if (!part->isHeadWritten()) writePartHead(*part);
    }
    MOX_RETHROW("MultipartHttpMsg::endPart")
    m_open_part = nullptr;
    part->m_parent = nullptr;
    delete part;
}

void MultipartHttpMsg::finish() {
    if (m_finished) return;
    if (m_open_part != nullptr) {
        MOX_THROW(MOXIllegalStateError, "MultipartHttpMsg::finish - a part is still open");
    }
    m_finished = true;
    try {
        startBody();
        std::string closing = m_any_part ? "\r\n--" : "--";
        closing += m_boundary;
        closing += "--\r\n";
        m_wire->write(closing.data(), closing.size());
        m_wire->finish();
    }
    MOX_RETHROW("MultipartHttpMsg::finish")
}
