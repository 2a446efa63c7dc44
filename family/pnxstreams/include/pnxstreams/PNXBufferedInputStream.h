#ifndef PNXSTREAMS_PNXBUFFEREDINPUTSTREAM_H
#define PNXSTREAMS_PNXBUFFEREDINPUTSTREAM_H

#include "pnxstreams/PNXFilterInputStream.h"

// A read-ahead buffer over an inner stream, with line reading and unread of
// any size.
//
// Refilling asks the inner stream for the whole free space with one read, and
// a call that can give bytes never reads the inner stream a second time, so a
// read from a connection never waits for more once bytes have arrived. A read
// of at least the buffer size with nothing buffered goes straight into the
// caller's memory.
//
// Size 0 means no read-ahead: reads go straight to the inner stream (or answer
// the end when there is none) and the buffer only holds unread bytes.
class PNXBufferedInputStream : public PNXFilterInputStream {
public:
    PNXBufferedInputStream(PNXInputStream& in, int size);
    explicit PNXBufferedInputStream(int size);
    ~PNXBufferedInputStream() override;

    PNXBufferedInputStream(const PNXBufferedInputStream&) = delete;
    PNXBufferedInputStream& operator=(const PNXBufferedInputStream&) = delete;

    int read() override;
    unsigned read(char* buf, unsigned n) override;
    unsigned read(MOXByteBuffer& b, unsigned n) override;
    int canUnread() const override;
    void unread(const char* bytes, unsigned n) override;

    // Attaches to an inner stream; bytes still buffered are dropped.
    virtual void wrap(PNXInputStream& in);
    // Detaches from the inner stream. Bytes still buffered go back to it with
    // unread when it can take them, and are dropped otherwise.
    virtual void unWrap();
    // Appends the next line including its LF (so a CR LF line ends with CR LF)
    // to b and returns the count appended; PNX_EOF at the end of the data. A
    // last line without LF is returned as it is.
    unsigned readline(MOXByteBuffer& b) { return readline(b, PNX_EOF); }
    // The same, appending at most max bytes: a longer line stops there, its
    // rest stays unread, and the count is max (b then does not end with LF).
    // A peer's endless line costs no more than the bound. max 0 reads nothing.
    virtual unsigned readline(MOXByteBuffer& b, unsigned max);

private:
    unsigned buffered() const { return m_end - m_pos; }
    // Refills an empty buffer with one inner read; false at the end.
    bool fill();
    unsigned innerRead(char* buf, unsigned n);
    void allocate(unsigned capacity);

    char* m_buf;
    unsigned m_size;      // read-ahead size asked for; 0 = none
    unsigned m_capacity;  // bytes allocated; grows beyond m_size only for unread
    unsigned m_pos;       // next byte to deliver
    unsigned m_end;       // end of the buffered bytes
};

#endif
