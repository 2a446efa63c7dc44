#include "http/TALVEXDomWriter.h"

#include <cstring>

#include "talvex/PNXOutputStream.h"

TALVEXDomWriter::TALVEXDomWriter(PNXOutputStream* target) : m_target(target) {}

TALVEXDomWriter::~TALVEXDomWriter() { m_target = nullptr; }

void TALVEXDomWriter::write(const char* data, unsigned int length) { m_target->write(data, length); }

void TALVEXDomWriter::writeNewLine() { m_target->write("\r\n", 2); }

void TALVEXDomWriter::write(const char* text) {
    if (text != nullptr) m_target->write(text, static_cast<unsigned int>(std::strlen(text)));
}
