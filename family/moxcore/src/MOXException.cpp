#include "moxcore/MOXException.h"

#include <string>

MOXException::MOXException(MOXSeverity severity, int code) : m_severity(severity), m_code(code) {}

MOXException::~MOXException() = default;

MOXThrowable* MOXException::clone() const { return new MOXException(*this); }

void MOXException::hurl(const MOXFileLocation& location, const char* function, const char* kind) {
    addBackTrace(location, function, kind);
    throw MOXException(*this);
}

const char* MOXException::getThrowableName() const { return "MOXException"; }

void MOXException::describe(std::vector<std::string>& lines) const {
    lines.push_back(std::string(getThrowableName()) + " code " + std::to_string(m_code) + " (severity " +
                    std::to_string(m_severity) + ")");
    for (size_t i = 0; i < getMessageCount(); ++i) lines.push_back(getMessageAt(i).toString().str());
}
