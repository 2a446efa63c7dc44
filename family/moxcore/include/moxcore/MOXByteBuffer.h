#ifndef MOXCORE_MOXBYTEBUFFER_H
#define MOXCORE_MOXBYTEBUFFER_H

#include <cstddef>

// A growable byte buffer whose contents are always NUL-terminated, so that
// str() can be handed to text functions. Binary contents (with NUL bytes) are
// fine as well; pcount() is the authority on the length.
class MOXByteBuffer {
public:
    // initialSize: bytes reserved up front; growth: the least a growing step adds.
    // Growth is at least geometric, so appending byte by byte stays linear.
    explicit MOXByteBuffer(unsigned initialSize = 256, unsigned growth = 256);
    MOXByteBuffer(const MOXByteBuffer& other);
    MOXByteBuffer& operator=(const MOXByteBuffer& other);
    ~MOXByteBuffer();

    void reset();
    MOXByteBuffer& operator<<(char c);
    MOXByteBuffer& operator<<(const char* text);
    MOXByteBuffer& appendChars(const char* data, unsigned n);

    const char* str() const { return m_data; }
    char* str() { return m_data; }
    unsigned pcount() const { return m_length; }

    // Room for at least n bytes starting at str(), so a caller may write there
    // directly and then report the new length with setLength.
    void reserve(unsigned n);
    // The length after such a direct write; n must lie within what was reserved.
    void setLength(unsigned n);

    // Strips white space (blank, tab, CR, LF, VT, FF) at both ends and returns the
    // remaining length: a line holding only its line end gives 0.
    unsigned trim();

private:
    void grow(unsigned needed);

    char* m_data;
    unsigned m_length;
    unsigned m_capacity;  // bytes usable for contents; one more is kept for the NUL
    unsigned m_growth;
};

#endif
