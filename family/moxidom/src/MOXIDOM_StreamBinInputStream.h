#ifndef MOXIDOM_MOXIDOM_STREAMBININPUTSTREAM_H
#define MOXIDOM_MOXIDOM_STREAMBININPUTSTREAM_H

#include <cstddef>
#include <exception>

#include <xercesc/util/BinInputStream.hpp>

class PNXInputStream;

// Feeds Xerces from a PNXInputStream, one block per request of the scanner:
// the document is never held whole. An exception of the stream (time-out,
// cancellation, a broken body) is not thrown through Xerces, which does not
// release everything on such a way out: it is kept in the outcome, the input
// ends there, and the parser rethrows it once Xerces has returned. A stream
// holding more than maxBytes (when not 0) ends the same way once the bound is
// passed, so a document too large is never read, let alone built, whole.
class MOXIDOM_StreamBinInputStream : public XERCES_CPP_NAMESPACE::BinInputStream {
public:
    // The largest block asked of the stream at once.
    static const unsigned kMaxBlock = 64 * 1024;

    struct Outcome {
        std::exception_ptr failure;
        bool tooLarge = false;
    };

    MOXIDOM_StreamBinInputStream(PNXInputStream& in, std::size_t maxBytes, Outcome& outcome);

    XMLFilePos curPos() const override { return m_position; }
    XMLSize_t readBytes(XMLByte* const toFill, const XMLSize_t maxToRead) override;
    const XMLCh* getContentType() const override { return nullptr; }

private:
    PNXInputStream& m_in;
    const std::size_t m_max_bytes;
    Outcome& m_outcome;
    XMLFilePos m_position;
    bool m_ended;
};

#endif
