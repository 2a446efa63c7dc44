#ifndef PNXSTREAMS_PNXINPUTSTREAM_H
#define PNXSTREAMS_PNXINPUTSTREAM_H

class MOXByteBuffer;

// The "-1" result of the counted reads and of readline.
static const unsigned PNX_EOF = 0xFFFFFFFFu;

// A source of bytes. Counted reads place between 1 and n bytes (0 when n is 0)
// and answer PNX_EOF once the data has ended; they never wait for more bytes
// once some can be given.
class PNXInputStream {
public:
    PNXInputStream() = default;
    virtual ~PNXInputStream();

    // The next byte as 0..255, or -1 at the end.
    virtual int read() = 0;
    // Places 1..n bytes into buf. The default takes one byte with read(), so it
    // never waits for a second byte; real streams override it.
    virtual unsigned read(char* buf, unsigned n);
    // Appends 1..n bytes to b.
    virtual unsigned read(MOXByteBuffer& b, unsigned n) = 0;
    // Read until n bytes arrived or the data ended: the count, or PNX_EOF when
    // the data ended before the first byte.
    virtual unsigned readFully(char* buf, unsigned n);
    virtual unsigned readFully(MOXByteBuffer& b, unsigned n);
    virtual void close();

    // Non-zero when unread works: the given bytes are then read again before
    // anything else.
    virtual int canUnread() const;
    virtual void unread(const char* bytes, unsigned n);

    // Time limits and cancellation; only streams over a connection support them.
    virtual int canTimeout() const;
    virtual int setTimeout(int seconds);
    virtual int getTimeout() const;
    virtual int canCancel() const;
    virtual int setCancel(int on);
    virtual int getCancel() const;
    virtual void cancel();
};

#endif
