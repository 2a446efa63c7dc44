#include "moxhttptools/OnePieceHttpMsg.h"

#include <utility>

#include "HttpWireWriter.h"
#include "moxcore/MOXThrow.h"
#include "moxhttptools/HTTPMessage.h"
#include "moxhttptools/MultipartHttpMsg.h"

static const char MOX_UNIT[] = "OnePieceHttpMsg";

namespace {

unsigned checkedChunkSize(int chunkSize) {
    if (chunkSize < 0) {
        MOX_THROW(MOXIllegalArgumentError, "OnePieceHttpMsg::OnePieceHttpMsg - chunk size is negative");
    }
    return static_cast<unsigned>(chunkSize);
}

}  // namespace

OnePieceHttpMsg::OnePieceHttpMsg(PNXOutputStream& out, int chunkSize)
    : HttpMsgNode(false), body(*this), m_parent(nullptr), m_finished(false) {
    m_wire.reset(new HttpWireWriter(out, checkedChunkSize(chunkSize)));
}

OnePieceHttpMsg::OnePieceHttpMsg(MultipartHttpMsg& parent)
    : HttpMsgNode(true), body(*this), m_parent(&parent), m_finished(false) {}

OnePieceHttpMsg::~OnePieceHttpMsg() {
    // A part deleted without endPart must not be written to by its message.
    if (m_parent != nullptr) m_parent->forgetPart(*this);
}

bool OnePieceHttpMsg::isOwnHeader(const std::string& name) const {
    if (!m_wire) return false;
    return HTTPMessage::equalsIgnoreCase(name, "Content-Length") ||
           HTTPMessage::equalsIgnoreCase(name, "Transfer-Encoding");
}

void OnePieceHttpMsg::startBody() {
    std::string head;
    composeHead(head);
    m_wire->startBody(head);
    m_sent_head = std::move(head);
}

void OnePieceHttpMsg::writeBody(const char* data, unsigned int length) {
    if (length == 0) return;
    if (data == nullptr) MOX_THROW(MOXIllegalArgumentError, "OnePieceHttpMsg::write - no data");
    if (!m_wire) {
        if (m_parent == nullptr) {
            MOX_THROW(MOXIllegalStateError, "OnePieceHttpMsg::write - the part's message is gone");
        }
        m_parent->writePartContent(*this, data, length);
        return;
    }
    if (m_finished) MOX_THROW(MOXIllegalStateError, "OnePieceHttpMsg::write - the message is finished");
    try {
        if (!m_wire->isBodyStarted()) startBody();
        m_wire->write(data, length);
    }
    MOX_RETHROW("OnePieceHttpMsg::write")
}

std::string OnePieceHttpMsg::takePartHead() {
    std::string head;
    composeHead(head);
    head += "\r\n";
    return head;
}

void OnePieceHttpMsg::finish() {
    if (!m_wire) {
        if (m_parent != nullptr && !isHeadWritten()) {
            try {
                m_parent->writePartHead(*this);
            }
            MOX_RETHROW("OnePieceHttpMsg::finish")
        }
        return;
    }
    if (m_finished) return;
    m_finished = true;
    try {
        if (!m_wire->isBodyStarted()) startBody();
        m_wire->finish();
    }
    MOX_RETHROW("OnePieceHttpMsg::finish")
}
