#include "PNXUnreadBuffer.h"

#include <cstdlib>
#include <cstring>

#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXThrow.h"

static const char MOX_UNIT[] = "PNXUnreadBuffer";

PNXUnreadBuffer::PNXUnreadBuffer() : m_data(nullptr), m_pos(0), m_capacity(0) {}

PNXUnreadBuffer::~PNXUnreadBuffer() { std::free(m_data); }

void PNXUnreadBuffer::push(const char* bytes, unsigned n) {
    if (n == 0) return;
    MOX_ASSERT(bytes != nullptr);
    if (n > m_pos) {
        const unsigned held = available();
        unsigned long long target = 2ull * m_capacity;
        if (target < 64) target = 64;
        if (target < static_cast<unsigned long long>(held) + n) target = static_cast<unsigned long long>(held) + n;
        if (target > 0xFFFFFFFFull) MOX_THROW(MOXOutOfMemoryError, "PNXUnreadBuffer::push");
        char* data = static_cast<char*>(std::malloc(static_cast<size_t>(target)));
        if (data == nullptr) MOX_THROW(MOXOutOfMemoryError, "PNXUnreadBuffer::push");
        const unsigned capacity = static_cast<unsigned>(target);
        if (held > 0) std::memcpy(data + capacity - held, m_data + m_pos, held);
        std::free(m_data);
        m_data = data;
        m_capacity = capacity;
        m_pos = capacity - held;
    }
    m_pos -= n;
    std::memmove(m_data + m_pos, bytes, n);
}

unsigned PNXUnreadBuffer::take(char* buf, unsigned n) {
    const unsigned k = n < available() ? n : available();
    std::memcpy(buf, m_data + m_pos, k);
    m_pos += k;
    return k;
}

unsigned PNXUnreadBuffer::take(MOXByteBuffer& b, unsigned n) {
    const unsigned k = n < available() ? n : available();
    b.appendChars(m_data + m_pos, k);
    m_pos += k;
    return k;
}
