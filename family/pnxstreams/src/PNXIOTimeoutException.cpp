#include "pnxstreams/PNXIOTimeoutException.h"

#include "moxcore/MOXThrow.h"

static const char MOX_UNIT[] = "PNXIOTimeoutException";

PNXIOTimeoutException::PNXIOTimeoutException(int code) : PNXIOException(code, "the read time limit expired") {}

MOXThrowable* PNXIOTimeoutException::clone() const { return MOX_NEW(PNXIOTimeoutException, *this); }

void PNXIOTimeoutException::hurl(const MOXFileLocation& location, const char* function, const char* kind) {
    addBackTrace(location, function, kind);
    throw PNXIOTimeoutException(*this);
}

const char* PNXIOTimeoutException::getThrowableName() const { return "PNXIOTimeoutException"; }
