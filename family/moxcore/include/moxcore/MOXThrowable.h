#ifndef MOXCORE_MOXTHROWABLE_H
#define MOXCORE_MOXTHROWABLE_H

#include <string>
#include <vector>

#include "moxcore/I18NString.h"
#include "moxcore/MOXFileLocation.h"

// The root of everything the family throws. A throwable carries a back-trace:
// one entry per place it was thrown from ("MOX_THROW") or passed through
// ("MOX_RETHROW"), oldest first.
class MOXThrowable {
public:
    struct TraceEntry {
        std::string unit;
        int line;
        bool hasFunction;     // false when the throw named no function
        std::string function;
        std::string kind;     // "MOX_THROW", "MOX_RETHROW"
    };

    MOXThrowable() = default;
    MOXThrowable(const MOXThrowable&) = default;
    MOXThrowable& operator=(const MOXThrowable&) = default;
    virtual ~MOXThrowable();

    virtual MOXThrowable* clone() const = 0;
    // Adds the trace entry, then throws a copy of this object as its own type.
    [[noreturn]] virtual void hurl(const MOXFileLocation& location, const char* function, const char* kind) = 0;
    // The messages of the throwable as one text.
    virtual I18NString getMessage();
    virtual const char* getThrowableName() const = 0;
    // A complete error report: name, codes, messages and back-trace.
    virtual I18NString toString();
    virtual I18NString getMessage() const;
    // The report with each line started by `prefix` and lines separated by
    // `separator`; `withTrace` non-zero adds the back-trace. Returns `out`.
    virtual I18NString& toString(const char* prefix, const char* separator, I18NString& out, int withTrace) const;

    void addBackTrace(const MOXFileLocation& location, const char* function, const char* kind);
    const std::vector<TraceEntry>& getBackTrace() const { return m_trace; }

protected:
    // The lines of the report before the back-trace; the base gives the name.
    virtual void describe(std::vector<std::string>& lines) const;

private:
    std::vector<TraceEntry> m_trace;
};

#endif
