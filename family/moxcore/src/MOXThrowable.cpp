#include "moxcore/MOXThrowable.h"

MOXThrowable::~MOXThrowable() = default;

void MOXThrowable::addBackTrace(const MOXFileLocation& location, const char* function, const char* kind) {
    TraceEntry entry;
    entry.unit = location.unit != nullptr ? location.unit : "";
    entry.line = location.line;
    entry.hasFunction = function != nullptr;
    entry.function = function != nullptr ? function : "";
    entry.kind = kind != nullptr ? kind : "";
    m_trace.push_back(entry);
}

void MOXThrowable::describe(std::vector<std::string>& lines) const { lines.push_back(getThrowableName()); }

I18NString MOXThrowable::getMessage() { return static_cast<const MOXThrowable*>(this)->getMessage(); }

I18NString MOXThrowable::getMessage() const {
    std::vector<std::string> lines;
    describe(lines);
    // The first line names the throwable; the message is what follows it.
    if (lines.size() <= 1) return I18NString(lines.empty() ? std::string() : lines[0]);
    std::string text;
    for (size_t i = 1; i < lines.size(); ++i) text += (i > 1 ? "; " : "") + lines[i];
    return I18NString(text);
}

I18NString MOXThrowable::toString() {
    I18NString out;
    return toString("", "\n", out, 1);
}

I18NString& MOXThrowable::toString(const char* prefix, const char* separator, I18NString& out, int withTrace) const {
    const std::string pre = prefix != nullptr ? prefix : "";
    const std::string sep = separator != nullptr ? separator : "\n";
    std::vector<std::string> lines;
    describe(lines);
    std::string text;
    for (size_t i = 0; i < lines.size(); ++i) text += (i > 0 ? sep : "") + pre + (i > 0 ? "  " : "") + lines[i];
    if (withTrace && !m_trace.empty()) {
        text += sep + pre + "  back-trace (oldest first):";
        for (const TraceEntry& e : m_trace) {
            text += sep + pre + "    " + e.unit + ":" + std::to_string(e.line) + " " +
                    (e.hasFunction ? e.function : std::string("-")) + " [" + e.kind + "]";
        }
    }
    out = I18NString(text);
    return out;
}
