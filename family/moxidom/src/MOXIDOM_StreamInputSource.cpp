#include "MOXIDOM_StreamInputSource.h"

XERCES_CPP_NAMESPACE_USE

namespace {
// Only named in messages; never resolved against anything.
const XMLCh kSystemId[] = {u's', u't', u'r', u'e', u'a', u'm', 0};
}  // namespace

MOXIDOM_StreamInputSource::MOXIDOM_StreamInputSource(PNXInputStream& in, std::size_t maxBytes)
    : InputSource(kSystemId), m_in(in), m_max_bytes(maxBytes) {}

BinInputStream* MOXIDOM_StreamInputSource::makeStream() const {
    // Xerces deletes the stream with its own memory manager, as XMemory's operator new arranges.
    return new (getMemoryManager()) MOXIDOM_StreamBinInputStream(m_in, m_max_bytes, m_outcome);
}
