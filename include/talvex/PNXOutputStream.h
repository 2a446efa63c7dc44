#ifndef TALVEX_PNXOUTPUTSTREAM_H
#define TALVEX_PNXOUTPUTSTREAM_H

#include "talvex/TALVEXExport.h"

/// The byte output stream of the system. The socket output streams, the enabled
/// output stream and the HTTP senders' body streams derive from it.
/// Header-only, so that the HTTP tools library can use it without linking the toolkit.
class TALVEX_API PNXOutputStream {
public:
    virtual ~PNXOutputStream() {}
    /// Writes all `length` bytes, or throws.
    virtual void write(const char* data, unsigned int length) = 0;
    virtual void flush() {}
    virtual void close() {}
};

#endif
