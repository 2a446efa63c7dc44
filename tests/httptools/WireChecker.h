#ifndef TESTS_HTTPTOOLS_WIRECHECKER_H
#define TESTS_HTTPTOOLS_WIRECHECKER_H

#include <string>

// Runs wire_check.py (Python's http.client, http.server and email packages
// plus a strict framing decoder) over one written message and returns the
// canonical description it prints, or its complaint.
class WireChecker {
public:
    // Whether python3 with those packages can be run at all.
    static bool available();
    // exitCode: 0 when the message was accepted.
    static std::string describe(const std::string& message, int& exitCode);
};

#endif
