#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "moxcore/MOXCore.h"
#include "moxcore/MOXThrow.h"

static const char MOX_UNIT[] = "ThrowConventionTest";

namespace {
template <class E, class F>
E catchAs(F&& f) {
    try {
        f();
    } catch (E& e) {
        return e;
    }
    ADD_FAILURE() << "nothing of the expected type was thrown";
    throw std::logic_error("unreachable");
}
}  // namespace

TEST(ThrowConvention, AssertionCarriesItsConditionText) {
    int* p = nullptr;
    auto e = catchAs<MOXAssertError>([&] { MOX_ASSERT_AT(42, p != NULL); });
    EXPECT_STREQ("MOX_ASSERT(p != NULL);", e.getText());
    ASSERT_EQ(1u, e.getBackTrace().size());
    EXPECT_EQ("ThrowConventionTest", e.getBackTrace()[0].unit);
    EXPECT_EQ(42, e.getBackTrace()[0].line);
    EXPECT_FALSE(e.getBackTrace()[0].hasFunction) << "assertions name no function";
    EXPECT_EQ("MOX_THROW", e.getBackTrace()[0].kind);
}

TEST(ThrowConvention, AssertionTextKeepsMacrosAsWritten) {
    const char* p = nullptr;
    auto e = catchAs<MOXAssertError>([&] { MOX_ASSERT(NULL != p); });
    EXPECT_STREQ("MOX_ASSERT(NULL != p);", e.getText());
}

TEST(ThrowConvention, CoreErrorNamesTheOperationInItsFunctionText) {
    auto e = catchAs<MOXIllegalStateError>(
        [] { MOX_THROW_AT(159, MOXIllegalStateError, "X::getResponse - no request was sent"); });
    EXPECT_EQ(nullptr, e.getText());
    EXPECT_EQ("X::getResponse - no request was sent", e.getBackTrace().at(0).function);
    EXPECT_STREQ("MOXIllegalStateError", e.getThrowableName());
    EXPECT_NE(std::string::npos, e.toString().str().find("X::getResponse - no request was sent"));
}

TEST(ThrowConvention, BackTraceKeepsTheOrderOfThrowAndRethrows) {
    auto inner = [] { MOX_THROW_AT(10, MOXUnexpectedError, "inner"); };
    auto middle = [&] {
        try {
            inner();
        }
        MOX_RETHROW_AT(20, "middle")
    };
    auto e = catchAs<MOXUnexpectedError>([&] {
        try {
            middle();
        }
        MOX_RETHROW_AT(30, "outer")
    });
    ASSERT_EQ(3u, e.getBackTrace().size());
    EXPECT_EQ(10, e.getBackTrace()[0].line);
    EXPECT_EQ("MOX_THROW", e.getBackTrace()[0].kind);
    EXPECT_EQ(20, e.getBackTrace()[1].line);
    EXPECT_EQ("middle", e.getBackTrace()[1].function);
    EXPECT_EQ(30, e.getBackTrace()[2].line);
    EXPECT_EQ("MOX_RETHROW", e.getBackTrace()[2].kind);
}

TEST(ThrowConvention, HurlThrowsTheDynamicTypeSoBaseHandlersSeeIt) {
    MOXIllegalArgumentError original(0, "bad");
    MOXThrowable& asBase = original;
    try {
        asBase.hurl(MOX_AT(5), "f", "MOX_THROW");
    } catch (MOXIllegalArgumentError& e) {
        EXPECT_STREQ("bad", e.getText());
        return;
    } catch (...) {
    }
    FAIL() << "hurl through a base reference must throw the derived type";
}

TEST(ThrowConvention, AllocationConventionTurnsEveryFailureIntoACoreError) {
    auto nullResult = catchAs<MOXOutOfMemoryError>([] { ::moxAllocate(MOX_AT(77), [] { return (int*)nullptr; }); });
    EXPECT_EQ(77, nullResult.getBackTrace().at(0).line);

    auto badAlloc = catchAs<MOXOutOfMemoryError>([] {
        ::moxAllocate(MOX_AT(78), []() -> int* { throw std::bad_alloc(); });
    });
    EXPECT_EQ(78, badAlloc.getBackTrace().at(0).line);

    auto stdError = catchAs<MOXStdExceptionError>([] {
        ::moxAllocate(MOX_AT(79), []() -> int* { throw std::runtime_error("constructor failed"); });
    });
    EXPECT_STREQ("constructor failed", stdError.getText());
    EXPECT_EQ(79, stdError.getBackTrace().at(0).line);

    auto passing = catchAs<MOXIllegalStateError>([] {
        ::moxAllocate(MOX_AT(80), []() -> int* { MOX_THROW_AT(3, MOXIllegalStateError, "ctor"); });
    });
    ASSERT_EQ(2u, passing.getBackTrace().size());
    EXPECT_EQ(80, passing.getBackTrace()[1].line);
    EXPECT_EQ("MOX_RETHROW", passing.getBackTrace()[1].kind);
    EXPECT_FALSE(passing.getBackTrace()[1].hasFunction);
}

TEST(ThrowConvention, NewMacroAllocatesWithConstructorArguments) {
    struct Pair {
        Pair(int a, int b) : sum(a + b) {}
        int sum;
    };
    Pair* p = MOX_NEW_AT(90, Pair, 2, 40);
    EXPECT_EQ(42, p->sum);
    delete p;
}

TEST(ThrowConvention, CloneOfCoreErrorsKeepsTypeTextAndTrace) {
    MOXUnsupportedOperationError e(0, "nope");
    e.addBackTrace(MOX_AT(1), "op", "MOX_THROW");
    MOXThrowable* copy = e.clone();
    EXPECT_STREQ("MOXUnsupportedOperationError", copy->getThrowableName());
    EXPECT_EQ(1u, copy->getBackTrace().size());
    EXPECT_NE(nullptr, dynamic_cast<MOXUnsupportedOperationError*>(copy));
    delete copy;
}
