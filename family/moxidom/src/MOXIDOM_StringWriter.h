#ifndef MOXIDOM_MOXIDOM_STRINGWRITER_H
#define MOXIDOM_MOXIDOM_STRINGWRITER_H

#include <string>

#include "moxidom/DomWriter.h"

// A DomWriter appending to a caller's string.
class MOXIDOM_StringWriter : public DomWriter {
public:
    explicit MOXIDOM_StringWriter(std::string& target) : m_target(target) {}

    using DomWriter::write;
    void write(const char* data, unsigned int length) override { m_target.append(data, length); }

private:
    std::string& m_target;
};

#endif
