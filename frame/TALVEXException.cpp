#include "talvex/TALVEXException.h"

#include "moxcore/MOXThrow.h"
#include "talvex/TALVEXMessage.h"

static const char MOX_UNIT[] = "TALVEXException";

TALVEXException::TALVEXException(MOXSeverity severity, talvexErrorCode code) : MOXException(severity, code) {}

TALVEXException::TALVEXException(MOXSeverity severity, talvexErrorCode code, MOXMessageBase& message)
    : MOXException(severity, code) {
    addMessage(message);
}

TALVEXException::TALVEXException(const TALVEXException& other) = default;

TALVEXException& TALVEXException::operator=(const TALVEXException& other) {
    if (this != &other) MOXException::operator=(other);
    return *this;
}

TALVEXException::~TALVEXException() = default;

TALVEXException& TALVEXException::operator<<(const MOXMessageBase& message) {
    addMessage(message);
    return *this;
}

MOXThrowable* TALVEXException::clone() const { return MOX_NEW_AT(61, TALVEXException, *this); }

void TALVEXException::hurl(const MOXFileLocation& location, const char* function, const char* kind) {
    addBackTrace(location, function, kind);
    throw TALVEXException(*this);
}

const char* TALVEXException::getThrowableName() const { return "TALVEXException"; }

void TALVEXException::ThrowNotImplemented(const char* function) {
    TALVEXException e(MOX_SEVERITY_ERROR, ErrNotImplemented);
    e << TALVEXMessage(0xF2A8781A);
    e.hurl(MOX_AT(20), function, "MOX_THROW");
}
