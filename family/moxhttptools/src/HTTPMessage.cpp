#include "moxhttptools/HTTPMessage.h"

namespace {
bool isTrimmed(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }
}  // namespace

void HTTPMessage::trim(std::string& text) {
    std::string::size_type end = text.size();
    while (end > 0 && isTrimmed(text[end - 1])) --end;
    std::string::size_type begin = 0;
    while (begin < end && isTrimmed(text[begin])) ++begin;
    text.erase(end);
    text.erase(0, begin);
}
