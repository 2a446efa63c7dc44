#ifndef PNXSTREAMS_PNXIOEXCEPTION_H
#define PNXSTREAMS_PNXIOEXCEPTION_H

#include "moxcore/MOXErrors.h"

// Malformed or truncated stream data; the text says what was wrong and where.
class PNXIOException : public MOXError {
public:
    PNXIOException(int code, const char* text);

    MOXThrowable* clone() const override;
    [[noreturn]] void hurl(const MOXFileLocation& location, const char* function, const char* kind) override;
    const char* getThrowableName() const override;
};

#endif
