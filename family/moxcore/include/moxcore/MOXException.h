#ifndef MOXCORE_MOXEXCEPTION_H
#define MOXCORE_MOXEXCEPTION_H

#include "moxcore/MOXMessageSet.h"
#include "moxcore/MOXThrowable.h"

// Severity of an exception. Every toolkit error carries MOX_SEVERITY_ERROR.
typedef int MOXSeverity;
enum { MOX_SEVERITY_INFO = 0, MOX_SEVERITY_ERROR = 1, MOX_SEVERITY_FATAL = 2 };

// An exception with a severity, an error code and messages.
class MOXException : public MOXThrowable, public MOXMessageSet {
public:
    MOXException(MOXSeverity severity, int code);
    MOXException(const MOXException&) = default;
    MOXException& operator=(const MOXException&) = default;
    ~MOXException() override;

    MOXThrowable* clone() const override;
    [[noreturn]] void hurl(const MOXFileLocation& location, const char* function, const char* kind) override;
    const char* getThrowableName() const override;

    MOXSeverity getSeverity() const { return m_severity; }
    int getCode() const { return m_code; }

protected:
    void describe(std::vector<std::string>& lines) const override;

private:
    MOXSeverity m_severity;
    int m_code;
};

#endif
