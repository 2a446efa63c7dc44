#include "pnxstreams/PNXIOCancelException.h"

#include "moxcore/MOXThrow.h"

static const char MOX_UNIT[] = "PNXIOCancelException";

PNXIOCancelException::PNXIOCancelException(int code) : PNXIOException(code, "the read was cancelled") {}

MOXThrowable* PNXIOCancelException::clone() const { return MOX_NEW(PNXIOCancelException, *this); }

void PNXIOCancelException::hurl(const MOXFileLocation& location, const char* function, const char* kind) {
    addBackTrace(location, function, kind);
    throw PNXIOCancelException(*this);
}

const char* PNXIOCancelException::getThrowableName() const { return "PNXIOCancelException"; }
