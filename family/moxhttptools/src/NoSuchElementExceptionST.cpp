#include "moxhttptools/NoSuchElementExceptionST.h"

MOXThrowable* NoSuchElementExceptionST::clone() const { return new NoSuchElementExceptionST(*this); }

void NoSuchElementExceptionST::hurl(const MOXFileLocation& location, const char* function, const char* kind) {
    addBackTrace(location, function, kind);
    throw NoSuchElementExceptionST(*this);
}

const char* NoSuchElementExceptionST::getThrowableName() const { return "NoSuchElementExceptionST"; }
