#ifndef PNXSTREAMS_PNXBLOCKINPUTSTREAM_H
#define PNXSTREAMS_PNXBLOCKINPUTSTREAM_H

#include <memory>
#include <string>

#include "pnxstreams/PNXFilterInputStream.h"

class PNXBufferedInputStream;
class PNXUnreadBuffer;

// A body of known length: exactly n bytes of the buffered stream, then the end.
// The inner stream ending before n bytes is an error, not a short body.
class PNXBlockInputStream : public PNXFilterInputStream {
public:
    explicit PNXBlockInputStream(PNXBufferedInputStream& in);
    ~PNXBlockInputStream() override;

    int read() override;
    unsigned read(char* buf, unsigned n) override;
    unsigned read(MOXByteBuffer& b, unsigned n) override;
    int canUnread() const override;
    // Unread bytes are delivered again and do not count against the length.
    void unread(const char* bytes, unsigned n) override;

    // n <= 0 is an empty body. Starts the count afresh.
    virtual void setBlockLength(int n);

private:
    // Limits a read of n bytes to the rest of the body; 0 at its end.
    unsigned limit(unsigned n, const char* function);
    void count(unsigned got, const char* function);
    [[noreturn]] void endedEarly(int line, const char* function);

    PNXBufferedInputStream* m_in;
    std::unique_ptr<PNXUnreadBuffer> m_back;
    unsigned m_length;  // body length
    unsigned m_left;    // bytes still to come from the inner stream
    std::string m_failure;
};

#endif
