#include "moxcore/MOXByteBuffer.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\v' || c == '\f'; }
}  // namespace

MOXByteBuffer::MOXByteBuffer(unsigned initialSize, unsigned growth)
    : m_data(nullptr), m_length(0), m_capacity(0), m_growth(growth == 0 ? 1 : growth) {
    grow(initialSize == 0 ? 1 : initialSize);
}

MOXByteBuffer::MOXByteBuffer(const MOXByteBuffer& other)
    : m_data(nullptr), m_length(0), m_capacity(0), m_growth(other.m_growth) {
    grow(other.m_length == 0 ? 1 : other.m_length);
    std::memcpy(m_data, other.m_data, other.m_length);
    setLength(other.m_length);
}

MOXByteBuffer& MOXByteBuffer::operator=(const MOXByteBuffer& other) {
    if (this != &other) {
        reset();
        appendChars(other.m_data, other.m_length);
    }
    return *this;
}

MOXByteBuffer::~MOXByteBuffer() { std::free(m_data); }

void MOXByteBuffer::grow(unsigned needed) {
    if (needed <= m_capacity) return;
    // Grow by at least the growth step and at least double, so repeated
    // appends cost amortised constant time.
    unsigned long long target = static_cast<unsigned long long>(m_capacity) + m_growth;
    if (target < 2ull * m_capacity) target = 2ull * m_capacity;
    if (target < needed) target = needed;
    if (target > 0xFFFFFFFEull) throw std::bad_alloc();
    char* data = static_cast<char*>(std::realloc(m_data, static_cast<size_t>(target) + 1));
    if (data == nullptr) throw std::bad_alloc();
    m_data = data;
    m_capacity = static_cast<unsigned>(target);
    m_data[m_length] = '\0';
}

void MOXByteBuffer::reset() {
    m_length = 0;
    m_data[0] = '\0';
}

MOXByteBuffer& MOXByteBuffer::operator<<(char c) {
    if (m_length + 1 > m_capacity) grow(m_length + 1);
    m_data[m_length++] = c;
    m_data[m_length] = '\0';
    return *this;
}

MOXByteBuffer& MOXByteBuffer::operator<<(const char* text) {
    if (text != nullptr) appendChars(text, static_cast<unsigned>(std::strlen(text)));
    return *this;
}

MOXByteBuffer& MOXByteBuffer::appendChars(const char* data, unsigned n) {
    if (n == 0 || data == nullptr) return *this;
    if (m_length + n > m_capacity) grow(m_length + n);
    std::memmove(m_data + m_length, data, n);
    m_length += n;
    m_data[m_length] = '\0';
    return *this;
}

void MOXByteBuffer::reserve(unsigned n) { grow(n); }

void MOXByteBuffer::setLength(unsigned n) {
    if (n > m_capacity) grow(n);
    m_length = n;
    m_data[m_length] = '\0';
}

unsigned MOXByteBuffer::trim() {
    unsigned end = m_length;
    while (end > 0 && isBlank(m_data[end - 1])) --end;
    unsigned start = 0;
    while (start < end && isBlank(m_data[start])) ++start;
    if (start > 0) std::memmove(m_data, m_data + start, end - start);
    setLength(end - start);
    return m_length;
}
