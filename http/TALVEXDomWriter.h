#ifndef TALVEX_HTTP_TALVEXDOMWRITER_H
#define TALVEX_HTTP_TALVEXDOMWRITER_H

#include "moxidom/DomWriter.h"

class PNXOutputStream;

// Serialises a DOM node into an output stream: built on the stack around one
// MOXIDOM_Helper::write call.
class TALVEXDomWriter : public DomWriter {
public:
    explicit TALVEXDomWriter(PNXOutputStream* target);
    ~TALVEXDomWriter() override;

    void write(const char* data, unsigned int length) override;
    // Writes CR LF.
    void writeNewLine() override;
    // A null text writes nothing.
    void write(const char* text) override;

private:
    PNXOutputStream* m_target;
};

#endif
