#ifndef MOXHTTPTOOLS_HTTPWIREWRITER_H
#define MOXHTTPTOOLS_HTTPWIREWRITER_H

#include <cstddef>
#include <memory>
#include <string>

class PNXOutputStream;

// The framing and buffering under one outgoing message: the head, then the
// body either chunked or with a Content-Length.
//
// Chunked: head, chunk framing and body bytes are coalesced in one buffer of
// kBufferSize bytes that goes out in one write when full and at finish. Body
// bytes fill chunks of chunkSize bytes (fewer only when the buffer runs out or
// at the end). A chunk of at least kBufferSize bytes goes straight from the
// caller's memory to the stream, its header riding on the buffer's last write.
//
// Content-Length: the length goes first, so the body is held until finish,
// behind a gap left for the head, and everything leaves in a single write.
//
// After the stream failed once, every further write raises MOXIllegalStateError:
// what reached the peer is unknown, so the message cannot be continued.
class HttpWireWriter {
public:
    static const unsigned kBufferSize = 16384;

    // chunkSize 0: Content-Length; otherwise chunked.
    HttpWireWriter(PNXOutputStream& out, unsigned chunkSize);
    ~HttpWireWriter();

    HttpWireWriter(const HttpWireWriter&) = delete;
    HttpWireWriter& operator=(const HttpWireWriter&) = delete;

    bool isChunked() const { return m_chunk_size != 0; }
    bool isBodyStarted() const { return m_started; }

    // head: start line and header lines, each ending in CR LF, without the
    // framing header and without the empty line; both are added here.
    void startBody(const std::string& head);
    void write(const char* data, std::size_t length);
    // Ends the body and hands everything to the stream, then flushes it.
    void finish();

private:
    void checkUsable(const char* function) const;
    void put(const char* data, std::size_t length);
    void drain();
    void emit(const char* data, std::size_t length);
    void hold(const char* data, std::size_t length);
    void growHold(std::size_t capacity);
    void writeChunked(const char* data, std::size_t length);
    void openChunk();
    void closeChunk();

    PNXOutputStream& m_out;
    unsigned m_chunk_size;
    bool m_started;
    bool m_finished;
    bool m_broken;

    // Chunked: the coalescing buffer and the chunk being filled in it. The
    // chunk's header gets a slot wide enough for its largest size; a shorter
    // header is closed up by moving the (buffer-bounded) data down.
    std::unique_ptr<char[]> m_buf;
    unsigned m_used;
    unsigned m_slot;
    unsigned m_chunk_cap;
    bool m_chunk_open;
    unsigned m_chunk_at;
    unsigned m_chunk_len;

    // Content-Length: the head, and the held body after a gap of m_gap bytes.
    std::string m_head;
    std::unique_ptr<char[]> m_hold;
    std::size_t m_hold_size;
    std::size_t m_hold_cap;
    std::size_t m_gap;
};

#endif
