#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "moxcore/MOXErrors.h"
#include "moxhttptools/MOXStringTokenizer.h"
#include "moxhttptools/NoSuchElementExceptionST.h"

namespace {

// Each row: text, delimiters, tokens taken first, then what theRest gives and
// the tokens still to come (theRest takes nothing away).
TEST(MOXStringTokenizer, TokensAndTheRest) {
    struct Row {
        const char* text;
        const char* delims;
        std::vector<std::string> first;
        std::string rest;
        std::vector<std::string> after;
    };
    const std::vector<Row> rows = {
        {" \t POST \t\t /a  HTTP/1.1\t ", " \t", {"POST", "/a", "HTTP/1.1"}, "", {}},
        {"HTTP/1.1 200", " \t", {"HTTP/1.1", "200"}, "", {}},
        {"HTTP/1.1 \t200 \t OK  fine\t", " \t", {"HTTP/1.1", "200"}, "OK  fine\t", {"OK", "fine"}},
        {"HTTP/1.1 200 \t ", " \t", {"HTTP/1.1", "200"}, "", {}},
        {"  a b", " ", {}, "a b", {"a", "b"}},
        {"a,,b;c", ",;", {"a"}, "b;c", {"b", "c"}},
        {"", " \t", {}, "", {}},
        {" \t \t", " \t", {}, "", {}},
        {nullptr, " \t", {}, "", {}},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.text ? r.text : "(null)");
        MOXStringTokenizer t(r.text, r.delims, 0);
        for (const std::string& token : r.first) EXPECT_EQ(token, t.nextToken());
        EXPECT_EQ(r.rest, t.theRest());
        for (const std::string& token : r.after) EXPECT_EQ(token, t.nextToken());
        EXPECT_EQ(0, t.hasMoreTokens());
        // A failed nextToken leaves the position alone.
        EXPECT_THROW(t.nextToken(), NoSuchElementExceptionST);
        EXPECT_THROW(t.nextToken(), NoSuchElementExceptionST);
        EXPECT_EQ("", t.theRest());
    }
    EXPECT_THROW(MOXStringTokenizer("a", " ", 1), MOXIllegalArgumentError) << "a non-zero flag is refused";
}

TEST(NoSuchElementExceptionST, IsACoreErrorWithItsOwnNameCloneAndTrace) {
    MOXStringTokenizer t("", " ", 0);
    try {
        t.nextToken();
        FAIL() << "no exception";
    } catch (MOXError& e) {
        EXPECT_STREQ("NoSuchElementExceptionST", e.getThrowableName());
        ASSERT_EQ(1u, e.getBackTrace().size());
        EXPECT_EQ("MOXStringTokenizer", e.getBackTrace()[0].unit);
        EXPECT_EQ("MOX_THROW", e.getBackTrace()[0].kind);
        std::unique_ptr<MOXThrowable> copy(e.clone());
        EXPECT_NE(nullptr, dynamic_cast<NoSuchElementExceptionST*>(copy.get()));
        EXPECT_THROW(copy->hurl(MOXFileLocation("Here", 1), "again", "MOX_THROW"), NoSuchElementExceptionST);
    }
}

}  // namespace
