#include "pnxstreams/PNXIOException.h"

#include "moxcore/MOXThrow.h"

static const char MOX_UNIT[] = "PNXIOException";

PNXIOException::PNXIOException(int code, const char* text) : MOXError(code, text) {}

MOXThrowable* PNXIOException::clone() const { return MOX_NEW(PNXIOException, *this); }

void PNXIOException::hurl(const MOXFileLocation& location, const char* function, const char* kind) {
    addBackTrace(location, function, kind);
    throw PNXIOException(*this);
}

const char* PNXIOException::getThrowableName() const { return "PNXIOException"; }
