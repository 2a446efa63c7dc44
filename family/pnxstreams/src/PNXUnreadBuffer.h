#ifndef PNXSTREAMS_PNXUNREADBUFFER_H
#define PNXSTREAMS_PNXUNREADBUFFER_H

class MOXByteBuffer;

// Bytes given back to a stream, delivered before its own data. The bytes sit
// at the end of the storage so that each push goes in front of the rest
// without moving it; the storage doubles when a push does not fit.
class PNXUnreadBuffer {
public:
    PNXUnreadBuffer();
    ~PNXUnreadBuffer();
    PNXUnreadBuffer(const PNXUnreadBuffer&) = delete;
    PNXUnreadBuffer& operator=(const PNXUnreadBuffer&) = delete;

    unsigned available() const { return m_capacity - m_pos; }
    // The n bytes come before every byte already held.
    void push(const char* bytes, unsigned n);
    // The next byte (there must be one).
    int takeByte() { return static_cast<unsigned char>(m_data[m_pos++]); }
    // Up to n of the held bytes; their count.
    unsigned take(char* buf, unsigned n);
    unsigned take(MOXByteBuffer& b, unsigned n);

private:
    char* m_data;
    unsigned m_pos;       // first held byte; the held bytes end at m_capacity
    unsigned m_capacity;
};

#endif
