#ifndef PNXSTREAMS_PNXIOCANCELEXCEPTION_H
#define PNXSTREAMS_PNXIOCANCELEXCEPTION_H

#include "pnxstreams/PNXIOException.h"

// A read abandoned because another thread cancelled it.
class PNXIOCancelException : public PNXIOException {
public:
    explicit PNXIOCancelException(int code);

    MOXThrowable* clone() const override;
    [[noreturn]] void hurl(const MOXFileLocation& location, const char* function, const char* kind) override;
    const char* getThrowableName() const override;
};

#endif
