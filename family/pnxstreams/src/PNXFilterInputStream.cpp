#include "pnxstreams/PNXFilterInputStream.h"

PNXFilterInputStream::PNXFilterInputStream(PNXInputStream* inner) : m_inner(inner) {}

// The inner stream belongs to whoever made it; it may carry more data (the
// next message on a connection) after this filter is done.
void PNXFilterInputStream::close() {}

int PNXFilterInputStream::canTimeout() const { return m_inner != nullptr ? m_inner->canTimeout() : 0; }
int PNXFilterInputStream::setTimeout(int seconds) { return m_inner != nullptr ? m_inner->setTimeout(seconds) : 0; }
int PNXFilterInputStream::getTimeout() const { return m_inner != nullptr ? m_inner->getTimeout() : 0; }
int PNXFilterInputStream::canCancel() const { return m_inner != nullptr ? m_inner->canCancel() : 0; }
int PNXFilterInputStream::setCancel(int on) { return m_inner != nullptr ? m_inner->setCancel(on) : 0; }
int PNXFilterInputStream::getCancel() const { return m_inner != nullptr ? m_inner->getCancel() : 0; }
void PNXFilterInputStream::cancel() {
    if (m_inner != nullptr) m_inner->cancel();
}
