#include "moxhttptools/HTTPMessage.h"

namespace {
bool isTrimmed(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

char lowerAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }
}  // namespace

void HTTPMessage::trim(std::string& text) {
    std::string::size_type end = text.size();
    while (end > 0 && isTrimmed(text[end - 1])) --end;
    std::string::size_type begin = 0;
    while (begin < end && isTrimmed(text[begin])) ++begin;
    text.erase(end);
    text.erase(0, begin);
}

bool HTTPMessage::equalsIgnoreCase(const std::string& a, const char* b) {
    std::string::size_type i = 0;
    for (; i < a.size() && b[i] != '\0'; ++i) {
        if (lowerAscii(a[i]) != lowerAscii(b[i])) return false;
    }
    return i == a.size() && b[i] == '\0';
}

void HTTPMessage::appendQuoted(std::string& out, const std::string& value) {
    out += '"';
    for (char c : value) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    out += '"';
}
