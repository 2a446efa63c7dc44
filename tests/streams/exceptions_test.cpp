// The stream errors as throwables of the family.

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "moxcore/MOXFileLocation.h"
#include "pnxstreams/PNXIOCancelException.h"
#include "pnxstreams/PNXIOException.h"
#include "pnxstreams/PNXIOTimeoutException.h"

namespace {

TEST(StreamErrors, EachNamesItsOwnClassAlsoWhenCloned) {
    PNXIOException io(0, "bad data");
    PNXIOTimeoutException timeout(0);
    PNXIOCancelException cancelled(0);
    EXPECT_STREQ("PNXIOException", io.getThrowableName());
    EXPECT_STREQ("PNXIOTimeoutException", timeout.getThrowableName());
    EXPECT_STREQ("PNXIOCancelException", cancelled.getThrowableName());
    for (MOXThrowable* t : {static_cast<MOXThrowable*>(&io), static_cast<MOXThrowable*>(&timeout),
                            static_cast<MOXThrowable*>(&cancelled)}) {
        std::unique_ptr<MOXThrowable> copy(t->clone());
        EXPECT_STREQ(t->getThrowableName(), copy->getThrowableName());
    }
}

template <class Caught, class Raised>
void expectHurlThrows(Raised raised, const char* name) {
    try {
        raised.hurl(MOXFileLocation("TALVEXSocketInputStream", 42), "TALVEXSocketInputStream::timeoutHandler",
                    "MOX_THROW");
        ADD_FAILURE() << "hurl returned";
    } catch (Caught& e) {
        EXPECT_STREQ(name, e.getThrowableName());
        ASSERT_EQ(1u, e.getBackTrace().size());
        const MOXThrowable::TraceEntry& entry = e.getBackTrace().back();
        EXPECT_EQ("TALVEXSocketInputStream", entry.unit);
        EXPECT_EQ(42, entry.line);
        EXPECT_EQ("TALVEXSocketInputStream::timeoutHandler", entry.function);
        EXPECT_EQ("MOX_THROW", entry.kind);
    }
}

TEST(StreamErrors, HurlAddsTheTraceEntryAndThrowsTheRightType) {
    expectHurlThrows<PNXIOTimeoutException>(PNXIOTimeoutException(0), "PNXIOTimeoutException");
    expectHurlThrows<PNXIOCancelException>(PNXIOCancelException(0), "PNXIOCancelException");
    expectHurlThrows<PNXIOException>(PNXIOException(0, "x"), "PNXIOException");
    // Each can be caught as the general stream error and as a core error.
    expectHurlThrows<PNXIOException>(PNXIOTimeoutException(0), "PNXIOTimeoutException");
    expectHurlThrows<MOXError>(PNXIOCancelException(0), "PNXIOCancelException");
    expectHurlThrows<MOXThrowable>(PNXIOException(0, "x"), "PNXIOException");
    // A time-out is not mistaken for a cancellation.
    try {
        PNXIOTimeoutException(0).hurl(MOXFileLocation("T", 1), nullptr, "MOX_THROW");
    } catch (PNXIOCancelException&) {
        FAIL() << "caught as a cancellation";
    } catch (PNXIOTimeoutException&) {
    }
    // The report carries the text and the trace.
    try {
        PNXIOException(0, "chunked body ended after 1 of 2 bytes of a chunk")
            .hurl(MOXFileLocation("PNXChunkedInputStream", 9), "PNXChunkedInputStream::read", "MOX_THROW");
    } catch (MOXThrowable& t) {
        const std::string report = t.toString().c_str(nullptr, nullptr, nullptr, nullptr);
        EXPECT_NE(std::string::npos, report.find("PNXIOException")) << report;
        EXPECT_NE(std::string::npos, report.find("chunked body ended after 1 of 2 bytes of a chunk")) << report;
        EXPECT_NE(std::string::npos, report.find("PNXChunkedInputStream::read")) << report;
    }
}

}  // namespace
