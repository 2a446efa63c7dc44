#ifndef MOXIDOM_MOXIDOM_STREAMBININPUTSTREAM_H
#define MOXIDOM_MOXIDOM_STREAMBININPUTSTREAM_H

#include <xercesc/util/BinInputStream.hpp>

class PNXInputStream;

// Feeds Xerces from a PNXInputStream, one block per request of the scanner:
// the document is never held whole. Exceptions of the stream (time-outs,
// cancellation) pass through the parser to its caller.
class MOXIDOM_StreamBinInputStream : public XERCES_CPP_NAMESPACE::BinInputStream {
public:
    // The largest block asked of the stream at once.
    static const unsigned kMaxBlock = 64 * 1024;

    explicit MOXIDOM_StreamBinInputStream(PNXInputStream& in);

    XMLFilePos curPos() const override { return m_position; }
    XMLSize_t readBytes(XMLByte* const toFill, const XMLSize_t maxToRead) override;
    const XMLCh* getContentType() const override { return nullptr; }

private:
    PNXInputStream& m_in;
    XMLFilePos m_position;
    bool m_ended;
};

#endif
