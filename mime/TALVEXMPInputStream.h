#ifndef TALVEX_MIME_TALVEXMPINPUTSTREAM_H
#define TALVEX_MIME_TALVEXMPINPUTSTREAM_H

#include <string>

#include "mime/TALVEXBoundaryScanner.h"
#include "pnxstreams/PNXBufferedInputStream.h"

// The parts of a MIME multipart body, one after another, over the body stream.
//
// The bytes of the current part come out of the ordinary reads; the part's end
// reads as the end of data (PNX_EOF, or -1 from read()) until nextPart(). Use:
//     while (mp.hasNextPart()) {       // the first call drops the preamble
//         mp.nextPart();
//         ... readline() the part's header lines, then read its data ...
//     }
//     mp.unWrap();                     // bytes after the closing delimiter go back
//
// The delimiter is CR LF "--" boundary, so the caller pushes CR LF back in
// front of a body that may open directly with "--" boundary. All bytes pass
// through one 1024-byte buffer that is refilled in place; nothing is
// allocated after construction. The inner stream is not owned.
class TALVEXMPInputStream : public PNXBufferedInputStream {
public:
    enum { BUFFER_SIZE = 1024 };

    // boundary: the boundary parameter, or a whole pattern already beginning
    // with CR LF "--", which is used unchanged. Pattern and the two bytes after
    // it must fit in the buffer.
    TALVEXMPInputStream(PNXInputStream* in, const std::string& boundary);
    ~TALVEXMPInputStream() override;

    TALVEXMPInputStream(const TALVEXMPInputStream&) = delete;
    TALVEXMPInputStream& operator=(const TALVEXMPInputStream&) = delete;

    // A byte of the part as 0..255; -1 at its end.
    int read() override;
    // Up to n bytes of the part; never more than are buffered when some are.
    unsigned read(char* buf, unsigned n) override;
    // The same, appended to b.
    unsigned read(MOXByteBuffer& b, unsigned n) override;

    int canUnread() const override;
    void unread(const char* bytes, unsigned n) override;
    void wrap(PNXInputStream& in) override;
    // The end of the multipart body: after the closing delimiter, the bytes
    // read beyond it go back to the inner stream when it can unread.
    void unWrap() override;
    // Appends the part's bytes up to and including the next CR LF, at most
    // max of them; the count of the last step (nonzero when a line ended or
    // the bound stopped it), 0 when the part ended first. Never PNX_EOF.
    using PNXBufferedInputStream::readline;
    unsigned readline(MOXByteBuffer& b, unsigned max) override;

    // Drops the rest of the current part.
    virtual void skipPart();
    // 1 when another part follows the current one (which is skipped first);
    // 0 after the closing delimiter or once the inner stream has ended.
    virtual int hasNextPart();
    // Enters the next part; only after hasNextPart() answered 1.
    virtual void nextPart();

    const std::string& getPattern() const { return m_pattern; }

private:
    // Moves the unread bytes to the front, reads until pattern + 2 bytes are
    // buffered and scans what is new.
    void readMore();
    // Bytes of the part that may be handed out now.
    unsigned deliverable() const { return m_part_end - m_take; }
    void deliver(char* buf, unsigned len);
    // Bytes that can be delivered now, refilling once when there are none;
    // 0 at the end of the part. `function` names the caller in error 20.
    unsigned available(const char* function);
    unsigned patternLength() const { return static_cast<unsigned>(m_pattern.size()); }

    int m_in_eof;
    char* m_buf;
    int m_part_done;
    unsigned m_eob;
    unsigned m_part_end;
    unsigned m_take;
    PNXInputStream* m_in;
    std::string m_pattern;
    TALVEXBoundaryScanner m_scanner;
};

#endif
