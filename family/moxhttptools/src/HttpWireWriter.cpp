#include "HttpWireWriter.h"

#include <climits>
#include <cstring>
#include <new>

#include "moxcore/MOXThrow.h"
#include "talvex/PNXOutputStream.h"

static const char MOX_UNIT[] = "HttpWireWriter";

namespace {

const char kChunkedHeader[] = "Transfer-Encoding: chunked\r\n\r\n";
const char kLengthName[] = "Content-Length: ";
const char kLastChunk[] = "0\r\n\r\n";
// "Content-Length: " + at most 20 digits + CR LF + the empty line.
const std::size_t kLengthLineMax = sizeof(kLengthName) - 1 + 20 + 4;

// The size in lower-case hex, then CR LF (as "%zx\r\n" gives it, without
// the cost of a formatted print for every chunk). out holds at least 24 bytes.
unsigned formatChunkHeader(char* out, std::size_t size) {
    static const char digits[] = "0123456789abcdef";
    char reversed[sizeof(std::size_t) * 2];
    unsigned count = 0;
    do {
        reversed[count++] = digits[size & 0xF];
        size >>= 4;
    } while (size != 0);
    unsigned length = 0;
    while (count > 0) out[length++] = reversed[--count];
    out[length++] = '\r';
    out[length++] = '\n';
    out[length] = '\0';
    return length;
}

unsigned hexDigits(std::size_t value) {
    unsigned digits = 1;
    while (value >= 16) {
        value /= 16;
        ++digits;
    }
    return digits;
}

}  // namespace

HttpWireWriter::HttpWireWriter(PNXOutputStream& out, unsigned chunkSize)
    : m_out(out),
      m_chunk_size(chunkSize),
      m_started(false),
      m_finished(false),
      m_broken(false),
      m_used(0),
      m_slot(0),
      m_chunk_cap(0),
      m_chunk_open(false),
      m_chunk_at(0),
      m_chunk_len(0),
      m_hold_size(0),
      m_hold_cap(0),
      m_gap(0) {
    if (isChunked()) {
        m_buf.reset(new char[kBufferSize]);
        unsigned largest = m_chunk_size < kBufferSize ? m_chunk_size : kBufferSize;
        m_slot = hexDigits(largest) + 2;
        unsigned room = kBufferSize - m_slot - 2;
        m_chunk_cap = m_chunk_size < room ? m_chunk_size : room;
    }
}

HttpWireWriter::~HttpWireWriter() {}

void HttpWireWriter::checkUsable(const char* function) const {
    if (m_broken) MOX_THROW(MOXIllegalStateError, function);
}

void HttpWireWriter::startBody(const std::string& head) {
    checkUsable("HttpWireWriter::startBody - the output stream failed earlier");
    MOX_ASSERT(!m_started);
    m_started = true;
    if (isChunked()) {
        put(head.data(), head.size());
        put(kChunkedHeader, sizeof(kChunkedHeader) - 1);
    } else {
        m_head = head;
        m_gap = head.size() + kLengthLineMax;
        m_hold_size = m_gap;
        growHold(m_gap + 4096);
    }
}

void HttpWireWriter::write(const char* data, std::size_t length) {
    if (length == 0) return;
    // Small writes where there is room: the common case of serialisers.
    if (m_chunk_open && length < m_chunk_cap - m_chunk_len) {
        std::memcpy(m_buf.get() + m_used, data, length);
        m_used += static_cast<unsigned>(length);
        m_chunk_len += static_cast<unsigned>(length);
        return;
    }
    if (length <= m_hold_cap - m_hold_size) {
        std::memcpy(m_hold.get() + m_hold_size, data, length);
        m_hold_size += length;
        return;
    }
    checkUsable("HttpWireWriter::write - the output stream failed earlier");
    MOX_ASSERT(m_started && !m_finished);
    if (isChunked()) {
        writeChunked(data, length);
    } else {
        hold(data, length);
    }
}

void HttpWireWriter::finish() {
    checkUsable("HttpWireWriter::finish - the output stream failed earlier");
    MOX_ASSERT(m_started && !m_finished);
    m_finished = true;
    if (isChunked()) {
        if (m_chunk_open) closeChunk();
        put(kLastChunk, sizeof(kLastChunk) - 1);
        drain();
    } else {
        // Taken out first, so that nothing can be held after the end.
        std::unique_ptr<char[]> message(std::move(m_hold));
        std::size_t bodyLength = m_hold_size - m_gap;
        m_hold_size = 0;
        m_hold_cap = 0;
        std::string line = kLengthName + std::to_string(bodyLength) + "\r\n\r\n";
        std::size_t headLength = m_head.size() + line.size();
        char* start = message.get() + (m_gap - headLength);
        std::memcpy(start, m_head.data(), m_head.size());
        std::memcpy(start + m_head.size(), line.data(), line.size());
        emit(start, headLength + bodyLength);
    }
    try {
        m_out.flush();
    }
    MOX_RETHROW("HttpWireWriter::finish")
}

void HttpWireWriter::hold(const char* data, std::size_t length) {
    if (length > m_hold_cap - m_hold_size) {
        std::size_t needed = m_hold_size + length;
        if (needed < m_hold_size) MOX_THROW(MOXOutOfMemoryError, "HttpWireWriter::write - body too large");
        // Doubling keeps many small writes linear; one large write grows to fit exactly.
        std::size_t doubled = m_hold_cap * 2 > m_hold_cap ? m_hold_cap * 2 : needed;
        growHold(needed > doubled ? needed : doubled);
    }
    std::memcpy(m_hold.get() + m_hold_size, data, length);
    m_hold_size += length;
}

void HttpWireWriter::growHold(std::size_t capacity) {
    char* grown = new (std::nothrow) char[capacity];
    if (grown == nullptr) MOX_THROW(MOXOutOfMemoryError, "HttpWireWriter::write - no memory to hold the body");
    if (m_hold_size > 0 && m_hold) std::memcpy(grown, m_hold.get(), m_hold_size);
    m_hold.reset(grown);
    m_hold_cap = capacity;
}

// Raw bytes (head, framing) into the buffer; never inside an open chunk.
void HttpWireWriter::put(const char* data, std::size_t length) {
    while (length > 0) {
        if (m_used == kBufferSize) drain();
        if (m_used == 0 && length >= kBufferSize) {
            emit(data, length);
            return;
        }
        std::size_t take = kBufferSize - m_used;
        if (take > length) take = length;
        std::memcpy(m_buf.get() + m_used, data, take);
        m_used += static_cast<unsigned>(take);
        data += take;
        length -= take;
    }
}

void HttpWireWriter::drain() {
    if (m_used == 0) return;
    unsigned used = m_used;
    m_used = 0;
    emit(m_buf.get(), used);
}

void HttpWireWriter::emit(const char* data, std::size_t length) {
    try {
        while (length > 0) {
            unsigned piece = length > static_cast<std::size_t>(INT_MAX) ? static_cast<unsigned>(INT_MAX)
                                                                        : static_cast<unsigned>(length);
            m_out.write(data, piece);
            data += piece;
            length -= piece;
        }
    } catch (MOXThrowable& t) {
        m_broken = true;
        t.addBackTrace(MOX_HERE, "HttpWireWriter::emit", "MOX_RETHROW");
        throw;
    } catch (...) {
        m_broken = true;
        throw;
    }
}

void HttpWireWriter::writeChunked(const char* data, std::size_t length) {
    while (length > 0) {
        if (!m_chunk_open) {
            std::size_t whole = length < m_chunk_size ? length : m_chunk_size;
            if (whole >= kBufferSize) {
                // Straight through: one write carries what is buffered plus the
                // chunk header, one the caller's bytes; the CR LF after them
                // waits in the buffer for the next chunk or the end.
                char header[24];
                unsigned headerLength = formatChunkHeader(header, whole);
                put(header, headerLength);
                drain();
                emit(data, whole);
                put("\r\n", 2);
                data += whole;
                length -= whole;
                continue;
            }
            openChunk();
        }
        std::size_t take = m_chunk_cap - m_chunk_len;
        if (take > length) take = length;
        std::memcpy(m_buf.get() + m_used, data, take);
        m_used += static_cast<unsigned>(take);
        m_chunk_len += static_cast<unsigned>(take);
        data += take;
        length -= take;
        if (m_chunk_len == m_chunk_cap) closeChunk();
    }
}

void HttpWireWriter::openChunk() {
    // Start a chunk only where a full one fits, so chunks keep their size.
    if (kBufferSize - m_used < m_slot + m_chunk_cap + 2) drain();
    m_chunk_open = true;
    m_chunk_at = m_used;
    m_chunk_len = 0;
    m_used += m_slot;
}

void HttpWireWriter::closeChunk() {
    m_chunk_open = false;
    if (m_chunk_len == 0) {
        // An empty chunk would read as the last one.
        m_used = m_chunk_at;
        return;
    }
    char header[24];
    unsigned headerLength = formatChunkHeader(header, m_chunk_len);
    char* slot = m_buf.get() + m_chunk_at;
    if (headerLength < m_slot) std::memmove(slot + headerLength, slot + m_slot, m_chunk_len);
    std::memcpy(slot, header, headerLength);
    m_used = m_chunk_at + headerLength + m_chunk_len;
    m_buf[m_used++] = '\r';
    m_buf[m_used++] = '\n';
}
