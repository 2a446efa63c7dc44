#ifndef TESTS_STREAMS_MEMORYINPUTSTREAM_H
#define TESTS_STREAMS_MEMORYINPUTSTREAM_H

#include <cstddef>
#include <set>
#include <string>

#include "pnxstreams/PNXInputStream.h"

// The bytes a test feeds to the streams, handed out the way a connection does:
// a read never crosses a cut, so a cut after every byte gives one byte per
// read and a single cut splits the data in two at that offset. It records how
// it was asked, so tests can see what the stream on top did.
class MemoryInputStream : public PNXInputStream {
public:
    explicit MemoryInputStream(std::string data, unsigned piece = 0);

    // A read never delivers bytes on both sides of offset.
    void cutAt(size_t offset) { m_cuts.insert(offset); }
    // The next read that would deliver the byte at offset throws a time-out
    // instead, once, before taking anything.
    void timeOutAt(size_t offset) { m_timeout_at = offset; }
    // Lets unread work (the bytes go in front of the rest).
    void allowUnread() { m_can_unread = true; }

    int read() override;
    unsigned read(char* buf, unsigned n) override;
    unsigned read(MOXByteBuffer& b, unsigned n) override;
    void close() override { ++closes; }
    int canUnread() const override { return m_can_unread ? 1 : 0; }
    void unread(const char* bytes, unsigned n) override;

    int canTimeout() const override { return 1; }
    int setTimeout(int seconds) override;
    int getTimeout() const override { return m_timeout; }
    int canCancel() const override { return 1; }
    int setCancel(int on) override;
    int getCancel() const override { return m_cancel; }
    void cancel() override { ++cancels; }

    size_t position() const { return m_pos; }
    std::string rest() const { return m_data.substr(m_pos); }

    // What the stream on top asked for.
    unsigned reads = 0;          // counted reads, both overloads
    unsigned byteReads = 0;      // single-byte reads
    unsigned largestRequest = 0;
    const char* lastTarget = nullptr;  // where the last counted read wrote
    unsigned closes = 0;
    unsigned cancels = 0;

private:
    unsigned available(unsigned n);

    std::string m_data;
    size_t m_pos = 0;
    std::set<size_t> m_cuts;
    size_t m_timeout_at = std::string::npos;
    bool m_can_unread = false;
    int m_timeout = 0;
    int m_cancel = 0;
};

#endif
