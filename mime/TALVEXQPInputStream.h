#ifndef TALVEX_MIME_TALVEXQPINPUTSTREAM_H
#define TALVEX_MIME_TALVEXQPINPUTSTREAM_H

#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXBufferedInputStream.h"

// Decodes the quoted-printable transfer encoding of one MIME part while it is
// read. The encoded bytes are taken one at a time from the inner stream (not
// owned) and decoded a line at a time into m_line; reads hand out from there.
//
// Every hard line end (CR LF, LF CR, a lone CR or LF) comes out as CR LF;
// "=" at a line end (blanks allowed in between) joins two encoded lines;
// =XY gives the byte XY (hexadecimal digits of either case). Trailing blanks
// are kept. A malformed escape raises error 27 or 28.
class TALVEXQPInputStream : public PNXBufferedInputStream {
public:
    explicit TALVEXQPInputStream(PNXInputStream* in);
    ~TALVEXQPInputStream() override;

    TALVEXQPInputStream(const TALVEXQPInputStream&) = delete;
    TALVEXQPInputStream& operator=(const TALVEXQPInputStream&) = delete;

    // A decoded byte as 0..255; -1 at the end.
    int read() override;
    // Up to n bytes of the current decoded line (a new one is decoded when it
    // is used up); a read never spans two lines.
    unsigned read(char* buf, unsigned n) override;
    // The same, replacing b's content.
    unsigned read(MOXByteBuffer& b, unsigned n) override;

    int canUnread() const override;
    void unread(const char* bytes, unsigned n) override;
    void wrap(PNXInputStream& in) override;
    void unWrap() override;
    // Replaces b's content with the undelivered rest of the current line, at
    // most max bytes of it (decoding a new one first when nothing of a line
    // was delivered yet) and returns its length; PNX_EOF at the end.
    using PNXBufferedInputStream::readline;
    unsigned readline(MOXByteBuffer& b, unsigned max) override;

    // The next encoded byte, or -1.
    virtual int getRawChar();
    // Pushes one encoded byte back (one at most).
    virtual void ungetRawChar(int c);
    // 0 unless c is CR or LF; otherwise takes the second byte of a CR LF or
    // LF CR pair and answers 1.
    virtual int isEndOfLine(int c);
    // Decodes the next line into m_line: its byte count, or -1 at the end.
    virtual int getDecodedLine();

    // "0".."9", "A".."F", "a".."f" as 0..15; -1 for anything else.
    static int hexValue(int c);

private:
    // Undelivered bytes of the current line.
    unsigned pending() const { return m_line.pcount() - m_pos; }
    // pending(), decoding a new line when none is left; 0 at the end.
    unsigned available();

    int m_raw_count;
    int m_pushback;
    unsigned m_pos;
    PNXInputStream* m_in;
    MOXByteBuffer m_line;
};

#endif
