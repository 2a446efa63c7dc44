#ifndef MOXHTTPTOOLS_NOSUCHELEMENTEXCEPTIONST_H
#define MOXHTTPTOOLS_NOSUCHELEMENTEXCEPTIONST_H

#include "moxcore/MOXErrors.h"

// Raised by MOXStringTokenizer::nextToken when no token is left. A core
// throwable like the core errors, so the usual catch and back-trace rules apply.
class NoSuchElementExceptionST : public MOXError {
public:
    NoSuchElementExceptionST(int code, const char* text) : MOXError(code, text) {}

    MOXThrowable* clone() const override;
    [[noreturn]] void hurl(const MOXFileLocation& location, const char* function, const char* kind) override;
    const char* getThrowableName() const override;
};

#endif
