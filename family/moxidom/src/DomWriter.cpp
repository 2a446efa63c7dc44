#include "moxidom/DomWriter.h"

#include <cstring>

DomWriter::~DomWriter() = default;

void DomWriter::writeNewLine() { write("\n", 1); }

const char* DomWriter::getOutputEncoding() { return "UTF-8"; }

void DomWriter::write(const char* text) {
    if (text == nullptr) return;
    write(text, static_cast<unsigned int>(std::strlen(text)));
}
