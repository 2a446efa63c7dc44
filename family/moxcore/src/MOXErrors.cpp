#include "moxcore/MOXErrors.h"

MOXError::MOXError(int code, const char* text)
    : m_code(code), m_has_text(text != nullptr), m_text(text != nullptr ? text : "") {}

void MOXError::describe(std::vector<std::string>& lines) const {
    lines.push_back(getThrowableName());
    // Core errors are mostly raised without a text; the function text of the
    // throw then says what went wrong ("X::close - envelope ... not yet closed").
    if (m_has_text && !m_text.empty()) {
        lines.push_back(m_text);
    } else if (!getBackTrace().empty() && getBackTrace().front().hasFunction) {
        lines.push_back(getBackTrace().front().function);
    }
}

#define MOX_DEFINE_ERROR(Name)                                                                   \
    MOXThrowable* Name::clone() const { return new Name(*this); }                                \
    void Name::hurl(const MOXFileLocation& location, const char* function, const char* kind) {   \
        addBackTrace(location, function, kind);                                                  \
        throw Name(*this);                                                                       \
    }                                                                                            \
    const char* Name::getThrowableName() const { return #Name; }

MOX_DEFINE_ERROR(MOXAssertError)
MOX_DEFINE_ERROR(MOXIllegalArgumentError)
MOX_DEFINE_ERROR(MOXIllegalStateError)
MOX_DEFINE_ERROR(MOXUnsupportedOperationError)
MOX_DEFINE_ERROR(MOXUnexpectedError)
MOX_DEFINE_ERROR(MOXOutOfMemoryError)
MOX_DEFINE_ERROR(MOXStdExceptionError)

MOXStdExceptionError::MOXStdExceptionError(const std::exception& e) : MOXError(0, e.what()) {}
