#ifndef PNXSTREAMS_PNXIOTIMEOUTEXCEPTION_H
#define PNXSTREAMS_PNXIOTIMEOUTEXCEPTION_H

#include "pnxstreams/PNXIOException.h"

// A read whose time limit expired before any byte arrived.
class PNXIOTimeoutException : public PNXIOException {
public:
    explicit PNXIOTimeoutException(int code);

    MOXThrowable* clone() const override;
    [[noreturn]] void hurl(const MOXFileLocation& location, const char* function, const char* kind) override;
    const char* getThrowableName() const override;
};

#endif
