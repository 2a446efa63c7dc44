#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "http/TALVEXDomWriter.h"
#include "http/TALVEXEnabledOutputStream.h"
#include "moxcore/MOXErrors.h"

namespace {
struct Recorder : PNXOutputStream {
    std::vector<std::string> writes;
    void write(const char* data, unsigned int length) override { writes.emplace_back(data, length); }
};

void expectRefused(TALVEXEnabledOutputStream& s) {
    try {
        s.write("x", 1);
        FAIL() << "write went through";
    } catch (MOXIllegalStateError& e) {
        EXPECT_EQ("[TALVEXEnabledOutputStream::write] - output stream not enabled (is this envelope or attachment closed?)",
                  e.getBackTrace().at(0).function);
        EXPECT_EQ("TALVEXEnabledOutputStream", e.getBackTrace().at(0).unit);
    }
}
}  // namespace

// Writes are refused until enabled with a target, then pass unchanged.
TEST(EnabledOutputStream, RefusesWritesUntilEnabledWithATargetAndCanBeReEnabled) {
    Recorder target;
    TALVEXEnabledOutputStream s;
    EXPECT_EQ(0, s.isEnabled());
    expectRefused(s);
    s.setEnabled(1);
    expectRefused(s);  // enabled, but no target
    s.setOutputStream(&target);
    s.setEnabled(1);
    s.write("ab\0c", 4);
    s.write("", 0);
    s.setEnabled(0);
    EXPECT_EQ(0, s.isEnabled());
    expectRefused(s);
    s.setEnabled(1);
    s.write("d", 1);
    ASSERT_EQ(3u, target.writes.size()) << "every call goes straight through, a zero-length one included";
    EXPECT_EQ(std::string("ab\0c", 4), target.writes[0]);
    EXPECT_EQ("", target.writes[1]);
    EXPECT_EQ("d", target.writes[2]);
}

TEST(DomWriter, NewLineIsCrLfAndNullTextWritesNothing) {
    Recorder target;
    TALVEXDomWriter w(&target);
    w.writeNewLine();
    w.write(static_cast<const char*>(nullptr));
    w.write("<a/>");
    w.write("xyz", 2);
    ASSERT_EQ(3u, target.writes.size());
    EXPECT_EQ("\r\n", target.writes[0]);
    EXPECT_EQ("<a/>", target.writes[1]);
    EXPECT_EQ("xy", target.writes[2]);
}
