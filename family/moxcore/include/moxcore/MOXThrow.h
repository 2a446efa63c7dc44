#ifndef MOXCORE_MOXTHROW_H
#define MOXCORE_MOXTHROW_H

// The throw convention, so that every raise is one readable line.
//
// A source file names its unit once, after its class:
//     static const char MOX_UNIT[] = "TALVEXSessionImp";
// and then raises with the line the behaviour is tied to, or the current line:
//     MOX_THROW_AT(159, MOXIllegalStateError, "TALVEXSessionImp::getResponse - no request was sent");
//     MOX_ASSERT_AT(170, m_current_writer == NULL);
//     writer = MOX_NEW_AT(194, TALVEXMessageWriterImp, ...);
//     try { ... } MOX_RETHROW_AT(199, "TALVEXSessionImp::openRequest")

#include <new>
#include <exception>

#include "moxcore/MOXErrors.h"
#include "moxcore/MOXFileLocation.h"

#define MOX_AT(line) MOXFileLocation(MOX_UNIT, (line))
#define MOX_HERE MOX_AT(__LINE__)

// Raises a core-library error: ErrorClass(0, null) hurled with the function text.
#define MOX_THROW_AT(line, ErrorClass, function) ::moxThrow<ErrorClass>(MOX_AT(line), (function))
#define MOX_THROW(ErrorClass, function) MOX_THROW_AT(__LINE__, ErrorClass, function)

// Always-active assertion; the error's text is "MOX_ASSERT(" condition ");",
// the condition as written (each macro turns it into text itself, before any
// macro in it, such as NULL, is expanded).
#define MOX_ASSERT_AT(line, condition)                                                    \
    do {                                                                                  \
        if (!(condition)) ::moxAssertFailed(MOX_AT(line), "MOX_ASSERT(" #condition ");"); \
    } while (0)
#define MOX_ASSERT(condition)                                                                 \
    do {                                                                                      \
        if (!(condition)) ::moxAssertFailed(MOX_AT(__LINE__), "MOX_ASSERT(" #condition ");"); \
    } while (0)

// The allocation convention: a null result or std::bad_alloc becomes
// MOXOutOfMemoryError, a core throwable gets a "MOX_RETHROW" entry, any other
// std::exception becomes MOXStdExceptionError, all at the allocation's location.
#define MOX_NEW_AT(line, Type, ...) ::moxAllocate(MOX_AT(line), [&]() { return new Type(__VA_ARGS__); })
#define MOX_NEW(Type, ...) MOX_NEW_AT(__LINE__, Type, __VA_ARGS__)

// Back-trace on the way out: put after a try block.
#define MOX_RETHROW_AT(line, function)                                   \
    catch (MOXThrowable & moxPassing) {                                  \
        moxPassing.addBackTrace(MOX_AT(line), (function), "MOX_RETHROW"); \
        throw;                                                           \
    }
#define MOX_RETHROW(function) MOX_RETHROW_AT(__LINE__, function)

template <class ErrorClass>
[[noreturn]] inline void moxThrow(const MOXFileLocation& location, const char* function) {
    ErrorClass(0, nullptr).hurl(location, function, "MOX_THROW");
}

[[noreturn]] void moxAssertFailed(const MOXFileLocation& location, const char* text);

template <class Make>
inline auto moxAllocate(const MOXFileLocation& location, Make&& make) -> decltype(make()) {
    decltype(make()) object = nullptr;
    try {
        object = make();
    } catch (MOXThrowable& t) {
        t.addBackTrace(location, nullptr, "MOX_RETHROW");
        throw;
    } catch (const std::bad_alloc&) {
        MOXOutOfMemoryError(0, nullptr).hurl(location, nullptr, "MOX_THROW");
    } catch (const std::exception& e) {
        MOXStdExceptionError(e).hurl(location, nullptr, "MOX_THROW");
    }
    if (object == nullptr) MOXOutOfMemoryError(0, nullptr).hurl(location, nullptr, "MOX_THROW");
    return object;
}

#endif
