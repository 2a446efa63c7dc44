#ifndef PNXSTREAMS_PNXCHUNKEDINPUTSTREAM_H
#define PNXSTREAMS_PNXCHUNKEDINPUTSTREAM_H

#include <memory>
#include <string>

#include "pnxstreams/PNXFilterInputStream.h"

class PNXBufferedInputStream;
class PNXUnreadBuffer;

// The decoded body of an HTTP chunked transfer coding. It ends after the last
// chunk (size 0) and leaves the trailer lines unread in the buffered stream.
//
// Chunk heads are taken lazily, at the start of the read that needs them, so a
// read that can deliver chunk data never waits for the next chunk's head. The
// decoding state lives in members, so a read interrupted by a time-out can be
// repeated.
class PNXChunkedInputStream : public PNXFilterInputStream {
public:
    explicit PNXChunkedInputStream(PNXBufferedInputStream& in);
    ~PNXChunkedInputStream() override;

    int read() override;
    unsigned read(char* buf, unsigned n) override;
    unsigned read(MOXByteBuffer& b, unsigned n) override;
    int canUnread() const override;
    void unread(const char* bytes, unsigned n) override;

private:
    enum State {
        SizeStart,   // before the first digit of a size line
        SizeDigits,  // in the hexadecimal size
        SizeBlanks,  // blanks after the size
        SizeExt,     // in a chunk extension, up to the LF
        SizeCR,      // CR seen, LF expected
        Data,        // m_left bytes of chunk data to go
        DataCR,      // CR LF expected after the chunk data
        DataLF,
        Done,        // the last chunk was read
        Failed       // an earlier error; every read repeats it
    };

    // Takes chunk heads and data ends until chunk data can be read or the body
    // has ended; false at the end. `function` names the caller in errors.
    bool toData(const char* function);
    void takeSizeByte(int c, const char* function);
    void keepLineText(int c);
    [[noreturn]] void fail(int line, const char* function, const std::string& text);
    [[noreturn]] void endedInData(int line, const char* function);
    std::string lineText() const;

    PNXBufferedInputStream* m_in;
    std::unique_ptr<PNXUnreadBuffer> m_back;
    State m_state;
    unsigned m_chunk;      // size of the current chunk
    unsigned m_left;       // its bytes still to deliver
    unsigned m_line_len;   // bytes of the current size line so far
    unsigned m_text_len;   // bytes kept in m_text
    bool m_text_cut;       // the line had more than m_text holds
    char m_text[32];       // start of the size line, for error texts
    std::string m_failure; // text of the error that ended decoding
};

#endif
