#ifndef TALVEX_TESTS_PARSEREXPECTATIONS_H
#define TALVEX_TESTS_PARSEREXPECTATIONS_H

#include <gtest/gtest.h>

#include <functional>
#include <string>

// Success when action raises the parser's TALVEXException with this code, this
// catalog message, thrown once at unit "TALVEXHTTPParser" by `function`, and
// carrying `detail` as a free-text second message (null: no second message).
::testing::AssertionResult raisesParserError(const std::function<void()>& action, int code, unsigned message,
                                             const char* function, const char* detail);

// Success when action raises the core assertion error with exactly this text
// at unit "TALVEXHTTPParser".
::testing::AssertionResult raisesAssertion(const std::function<void()>& action, const char* text);

// The header map's form of a header value: what the HTTP tools write back.
std::string dumpOf(const char* valueText);

#endif
