#ifndef MOXIDOM_MOXIDOM_STREAMBININPUTSTREAM_H
#define MOXIDOM_MOXIDOM_STREAMBININPUTSTREAM_H

#include <exception>

#include <xercesc/util/BinInputStream.hpp>

class PNXInputStream;

// Feeds Xerces from a PNXInputStream, one block per request of the scanner:
// the document is never held whole. An exception of the stream (time-out,
// cancellation, a broken body) is not thrown through Xerces, which does not
// release everything on such a way out: it is kept in `failure`, the input ends
// there, and the parser rethrows it once Xerces has returned.
class MOXIDOM_StreamBinInputStream : public XERCES_CPP_NAMESPACE::BinInputStream {
public:
    // The largest block asked of the stream at once.
    static const unsigned kMaxBlock = 64 * 1024;

    MOXIDOM_StreamBinInputStream(PNXInputStream& in, std::exception_ptr& failure);

    XMLFilePos curPos() const override { return m_position; }
    XMLSize_t readBytes(XMLByte* const toFill, const XMLSize_t maxToRead) override;
    const XMLCh* getContentType() const override { return nullptr; }

private:
    PNXInputStream& m_in;
    std::exception_ptr& m_failure;
    XMLFilePos m_position;
    bool m_ended;
};

#endif
