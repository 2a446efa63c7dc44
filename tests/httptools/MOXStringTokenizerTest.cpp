#include <gtest/gtest.h>

#include <memory>

#include "moxcore/MOXErrors.h"
#include "moxhttptools/MOXStringTokenizer.h"
#include "moxhttptools/NoSuchElementExceptionST.h"

namespace {

TEST(MOXStringTokenizer, RunsOfMixedDelimitersAreOneGap) {
    MOXStringTokenizer t(" \t POST \t\t /a  HTTP/1.1\t ", " \t", 0);
    EXPECT_EQ("POST", t.nextToken());
    EXPECT_EQ("/a", t.nextToken());
    EXPECT_EQ("HTTP/1.1", t.nextToken());
    EXPECT_EQ(0, t.hasMoreTokens());
    EXPECT_THROW(t.nextToken(), NoSuchElementExceptionST);
}

TEST(MOXStringTokenizer, TheRestAfterTheLastTokenIsEmpty) {
    MOXStringTokenizer t("HTTP/1.1 200", " \t", 0);
    t.nextToken();
    t.nextToken();
    EXPECT_EQ("", t.theRest());
}

TEST(MOXStringTokenizer, TheRestSkipsOnlyTheGapAfterTheToken) {
    MOXStringTokenizer t("HTTP/1.1 \t200 \t OK  fine\t", " \t", 0);
    t.nextToken();
    t.nextToken();
    EXPECT_EQ("OK  fine\t", t.theRest());
    // theRest takes nothing away.
    EXPECT_EQ("OK", t.nextToken());
    EXPECT_EQ("fine\t", t.theRest());
}

TEST(MOXStringTokenizer, TheRestOfTrailingDelimitersIsEmpty) {
    MOXStringTokenizer t("HTTP/1.1 200 \t ", " \t", 0);
    t.nextToken();
    t.nextToken();
    EXPECT_EQ("", t.theRest());
}

TEST(MOXStringTokenizer, TheRestBeforeAnyTokenDropsLeadingDelimiters) {
    MOXStringTokenizer t("  a b", " ", 0);
    EXPECT_EQ("a b", t.theRest());
}

TEST(MOXStringTokenizer, EmptyNullAndDelimiterOnlyTextsHaveNoToken) {
    for (const char* text : {"", " \t \t", static_cast<const char*>(nullptr)}) {
        MOXStringTokenizer t(text, " \t", 0);
        EXPECT_EQ(0, t.hasMoreTokens());
        EXPECT_THROW(t.nextToken(), NoSuchElementExceptionST);
        EXPECT_EQ("", t.theRest());
    }
}

TEST(MOXStringTokenizer, FailedNextTokenLeavesThePositionAlone) {
    MOXStringTokenizer t("a  ", " ", 0);
    t.nextToken();
    EXPECT_THROW(t.nextToken(), NoSuchElementExceptionST);
    EXPECT_THROW(t.nextToken(), NoSuchElementExceptionST);
    EXPECT_EQ("", t.theRest());
}

TEST(MOXStringTokenizer, NonBlankDelimitersWork) {
    MOXStringTokenizer t("a,,b;c", ",;", 0);
    EXPECT_EQ("a", t.nextToken());
    EXPECT_EQ("b;c", t.theRest());
    EXPECT_EQ("b", t.nextToken());
    EXPECT_EQ("c", t.nextToken());
}

TEST(MOXStringTokenizer, NonZeroFlagIsRefused) {
    EXPECT_THROW(MOXStringTokenizer("a", " ", 1), MOXIllegalArgumentError);
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
