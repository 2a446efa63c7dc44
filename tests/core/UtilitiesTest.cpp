#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>

#include "moxcore/MOXCore.h"

TEST(Utilities, HexFormatting) {
    std::string s;
    EXPECT_EQ("0x0D", MOXUtConvert::hexCvt(s, 13, 2, '0', MOXUtConvert::getHexPrefix()));
    EXPECT_EQ("0xFF", MOXUtConvert::hexCvt(s, 255, 2, '0', "0x"));
    EXPECT_EQ("0x100", MOXUtConvert::hexCvt(s, 256, 2, '0', "0x"));
    EXPECT_EQ("0", MOXUtConvert::hexCvt(s, 0, 0, '0', nullptr));
}

TEST(Utilities, LowerCaseInPlaceTouchesOnlyAsciiLetters) {
    char text[] = "Content-TYPE: X\xC3\x84";
    MOXUtConvert::strlwr(text);
    EXPECT_STREQ("content-type: x\xC3\x84", text);
}

TEST(Utilities, TimerMeasuresMillisecondsAndStops) {
    MOXUtTimer t;
    t.start();
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    t.stop();
    unsigned ms = t.getElapsed(1);
    EXPECT_GE(ms, 30u);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(ms, t.getElapsed(1)) << "a stopped timer no longer advances";
}

TEST(Utilities, EffectivePathExpandsHomeOnly) {
    setenv("HOME", "/home/tester", 1);
    std::string p = "~/trace.log";
    EXPECT_EQ("/home/tester/trace.log", MOXFmDir::resolveEffectivePath(p));
    std::string q = "../logs/1_x";
    EXPECT_EQ("../logs/1_x", MOXFmDir::resolveEffectivePath(q));
}

TEST(Utilities, InitializeAndTerminateNest) {
    int before = moxInitializeCount();
    EXPECT_EQ(0, moxInitialize("A"));
    EXPECT_EQ(0, moxInitialize("B"));
    EXPECT_EQ(before + 2, moxInitializeCount());
    EXPECT_EQ(0, moxTerminate("B"));
    EXPECT_EQ(0, moxTerminate("A"));
    EXPECT_EQ(before, moxInitializeCount());
}

TEST(Utilities, TerminateWithoutInitializeReportsIt) {
    while (moxInitializeCount() > 0) moxTerminate("x");
    EXPECT_EQ(1, moxTerminate("x"));
}

TEST(Utilities, GuardLocksTheCriticalSection) {
    MOXThreadCriticalSection cs(0);
    int counter = 0;
    auto work = [&] {
        for (int i = 0; i < 100000; ++i) {
            MOXThreadGuard g(cs);
            ++counter;
        }
    };
    std::thread a(work), b(work);
    a.join();
    b.join();
    EXPECT_EQ(200000, counter);
}
