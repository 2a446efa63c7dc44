#include "talvex/TALVEXSocketInputStream.h"

#include "moxcore/MOXThrow.h"
#include "pnxstreams/PNXIOCancelException.h"
#include "pnxstreams/PNXIOTimeoutException.h"
#include "talvex/TALVEXSocket.h"

static const char MOX_UNIT[] = "TALVEXSocketInputStream";

TALVEXSocketInputStream::TALVEXSocketInputStream() : m_cancel_mode(0), m_cancel_request(0) {}

TALVEXSocketInputStream::~TALVEXSocketInputStream() {}

TALVEXSocket* TALVEXSocketInputStream::streamSocket() const {
    return const_cast<TALVEXSocketInputStream*>(this)->getStreamSocket();
}

int TALVEXSocketInputStream::canTimeout() const { return m_cancel_mode == 0 ? 1 : 0; }

int TALVEXSocketInputStream::getTimeout() const { return m_cancel_mode ? 0 : streamSocket()->getTimeLimitSec(); }

int TALVEXSocketInputStream::canCancel() const {
    if (m_cancel_mode) return 1;
    return streamSocket()->getTimeLimitSec() == 0 ? 1 : 0;
}

int TALVEXSocketInputStream::setTimeout(int timeLimitSec) {
    if (timeLimitSec > 0) {
        if (canTimeout() == 0) MOX_THROW(MOXUnsupportedOperationError, "TALVEXSocketInputStream::setTimeout");
        getStreamSocket()->setTimeLimitCallback(timeoutHandler, this, timeLimitSec);
    } else if (m_cancel_mode == 0) {
        getStreamSocket()->setTimeLimitCallback(nullptr, nullptr, 0);
    }
    if (m_cancel_mode) return 0;
    return getStreamSocket()->getTimeLimitSec() > 0 ? 1 : 0;
}

int TALVEXSocketInputStream::setCancel(int on) {
    if (canCancel() == 0) MOX_THROW(MOXUnsupportedOperationError, "TALVEXSocket::setCancel");
    m_cancel_mode = 0;
    if (on) {
        // Cancellation rides on a one-second time limit: the waiting read
        // looks at the request once a second.
        setTimeout(1);
        m_cancel_mode = 1;
    } else {
        setTimeout(0);
    }
    return 1;
}

int TALVEXSocketInputStream::getCancel() const { return m_cancel_mode; }

void TALVEXSocketInputStream::cancel() {
    if (m_cancel_mode == 0) MOX_THROW(MOXIllegalStateError, "TALVEXSocket::cancel");
    m_cancel_request = 1;
}

void TALVEXSocketInputStream::timeoutHandler(void* instancePointer) {
    MOX_ASSERT(instancePointer);
    TALVEXSocketInputStream* stream = static_cast<TALVEXSocketInputStream*>(instancePointer);
    if (stream->m_cancel_mode == 0)
        PNXIOTimeoutException(0).hurl(MOX_HERE, "TALVEXSocketInputStream::timeoutHandler", "MOX_THROW");
    if (stream->m_cancel_request.exchange(0) == 1)
        PNXIOCancelException(0).hurl(MOX_HERE, "TALVEXSocketInputStream::timeoutHandler", "MOX_THROW");
}
