#ifndef MOXIDOM_MOXIDOM_STREAMINPUTSOURCE_H
#define MOXIDOM_MOXIDOM_STREAMINPUTSOURCE_H

#include <cstddef>
#include <exception>

#include <xercesc/sax/InputSource.hpp>

#include "MOXIDOM_StreamBinInputStream.h"

class PNXInputStream;

// A Xerces input source over a PNXInputStream that the caller keeps open for
// the parse. The stream is not owned.
class MOXIDOM_StreamInputSource : public XERCES_CPP_NAMESPACE::InputSource {
public:
    // maxBytes 0: no bound (see MOXIDOM_StreamBinInputStream).
    MOXIDOM_StreamInputSource(PNXInputStream& in, std::size_t maxBytes);

    XERCES_CPP_NAMESPACE::BinInputStream* makeStream() const override;
    // What the stream threw during the parse, if anything, and whether it
    // held more than maxBytes (see the byte stream).
    std::exception_ptr failure() const { return m_outcome.failure; }
    bool tooLarge() const { return m_outcome.tooLarge; }

private:
    PNXInputStream& m_in;
    const std::size_t m_max_bytes;
    mutable MOXIDOM_StreamBinInputStream::Outcome m_outcome;
};

#endif
