#ifndef MOXHTTPTOOLS_HTTPMESSAGE_H
#define MOXHTTPTOOLS_HTTPMESSAGE_H

#include <string>

// Text helpers shared by everything that takes HTTP heads apart.
class HTTPMessage {
public:
    // Removes blanks, tabs, CR and LF from both ends, in place.
    static void trim(std::string& text);
    // Whether a and b are the same text but for the case of ASCII letters
    // (header and parameter names).
    static bool equalsIgnoreCase(const std::string& a, const char* b);
    // Appends value as a quoted string: in double quotes, '"' and '\\'
    // escaped with a backslash.
    static void appendQuoted(std::string& out, const std::string& value);

    HTTPMessage() = delete;
};

#endif
