#ifndef MOXCORE_MOXERRORS_H
#define MOXCORE_MOXERRORS_H

#include <exception>
#include <string>

#include "moxcore/MOXThrowable.h"

// The core library's errors: misuse (assertion, illegal argument, illegal
// state, unsupported operation), unexpected conditions, memory exhaustion and
// a wrapped standard exception. Each is built with (0, text-or-null); the
// operation that raised it is named by the function text of its back-trace.
class MOXError : public MOXThrowable {
public:
    MOXError(int code, const char* text);

    int getCode() const { return m_code; }
    // The text given at construction, or null.
    const char* getText() const { return m_has_text ? m_text.c_str() : nullptr; }

protected:
    void describe(std::vector<std::string>& lines) const override;

private:
    int m_code;
    bool m_has_text;
    std::string m_text;
};

#define MOX_DECLARE_ERROR(Name)                                                                  \
    class Name : public MOXError {                                                               \
    public:                                                                                      \
        Name(int code, const char* text) : MOXError(code, text) {}                               \
        MOXThrowable* clone() const override;                                                    \
        [[noreturn]] void hurl(const MOXFileLocation& location, const char* function,            \
                               const char* kind) override;                                       \
        const char* getThrowableName() const override;                                           \
    };

MOX_DECLARE_ERROR(MOXAssertError)
MOX_DECLARE_ERROR(MOXIllegalArgumentError)
MOX_DECLARE_ERROR(MOXIllegalStateError)
MOX_DECLARE_ERROR(MOXUnsupportedOperationError)
MOX_DECLARE_ERROR(MOXUnexpectedError)
MOX_DECLARE_ERROR(MOXOutOfMemoryError)

#undef MOX_DECLARE_ERROR

// A standard exception turned into a core throwable; keeps what() as its text.
class MOXStdExceptionError : public MOXError {
public:
    explicit MOXStdExceptionError(const std::exception& e);
    MOXThrowable* clone() const override;
    [[noreturn]] void hurl(const MOXFileLocation& location, const char* function, const char* kind) override;
    const char* getThrowableName() const override;
};

#endif
