#ifndef MOXHTTPTOOLS_HTTPMESSAGE_H
#define MOXHTTPTOOLS_HTTPMESSAGE_H

#include <string>

// Text helpers shared by everything that takes HTTP heads apart.
class HTTPMessage {
public:
    // Removes blanks, tabs, CR and LF from both ends, in place.
    static void trim(std::string& text);

    HTTPMessage() = delete;
};

#endif
