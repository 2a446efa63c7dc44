#ifndef MOXIDOM_MOXIDOM_STREAMINPUTSOURCE_H
#define MOXIDOM_MOXIDOM_STREAMINPUTSOURCE_H

#include <exception>

#include <xercesc/sax/InputSource.hpp>

class PNXInputStream;

// A Xerces input source over a PNXInputStream that the caller keeps open for
// the parse. The stream is not owned.
class MOXIDOM_StreamInputSource : public XERCES_CPP_NAMESPACE::InputSource {
public:
    explicit MOXIDOM_StreamInputSource(PNXInputStream& in);

    XERCES_CPP_NAMESPACE::BinInputStream* makeStream() const override;
    // What the stream threw during the parse, if anything (see the byte stream).
    std::exception_ptr failure() const { return m_failure; }

private:
    PNXInputStream& m_in;
    mutable std::exception_ptr m_failure;
};

#endif
