// Reading and writing through the secure socket, blocking and non-blocking,
// against the stand-in security library.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "FakeCrypto.h"
#include "SecureSocketTestSupport.h"
#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXIOCancelException.h"
#include "pnxstreams/PNXIOTimeoutException.h"
#include "transport/TALVEXSocketSSL.h"

using namespace securetest;

namespace {
const char kConfig[] = "<sessionConfigDocument></sessionConfigDocument>";

class SecureSocketTransfer : public ::testing::Test {
protected:
    // A socket connected to the stand-in library, with the call log emptied
    // (queued answers stay).
    void connect(TALVEXSocketSSL& s) {
        s.open(443, ipv4(), kConfig, 0);
        fake.clearLog();
    }

    FakeCrypto fake;
};

// Gives a protected member to the tests.
class ExposedSocket : public TALVEXSocketSSL {
public:
    using TALVEXSocketSSL::internalWriteBuffer;
    using TALVEXSocketSSL::receiveBuffered;
    using TALVEXSocketSSL::TALVEXSocketSSL;
};
}  // namespace

TEST_F(SecureSocketTransfer, BlockingReadIsOneLibraryCallAndReadAfterTheEndCallsNothing) {
    fake.pushRecv(0, "abcdef", 6);
    TALVEXSocketSSL s(0);
    connect(s);
    char buf[4];
    int n = -1;
    EXPECT_EQ(1, s.ReadBuffer(buf, sizeof buf, &n));
    EXPECT_EQ(4, n);
    EXPECT_EQ("abcd", std::string(buf, 4));
    EXPECT_EQ(1, s.ReadBuffer(buf, sizeof buf, &n));
    EXPECT_EQ(2, n);
    EXPECT_EQ(0, s.ReadBuffer(buf, sizeof buf, &n));
    EXPECT_EQ(0, n);
    EXPECT_EQ(3, fake.count("VLT_Recv"));
    EXPECT_EQ(0, s.ReadBuffer(buf, sizeof buf, &n));
    EXPECT_EQ(0, n);
    EXPECT_EQ(3, fake.count("VLT_Recv")) << "after the end the library is not asked";
    EXPECT_EQ("VLT_Recv 4\nVLT_Recv 4\nVLT_Recv 4\n", fake.log());
}

TEST_F(SecureSocketTransfer, ReceiveFailuresAreCode5ForVltRecv) {
    fake.pushRecv(-60, "", 0);
    fake.pushRecv(-23, "", 0);
    fake.pushResult("VLT_Select", -60);
    for (int nonBlocking : {0, 1}) {  // a failed receive, then a failed wait
        SCOPED_TRACE(nonBlocking);
        TALVEXSocketSSL s(nonBlocking);
        connect(s);
        char buf[4];
        int n = 0;
        TALVEXException e = toolkitError([&] { s.ReadBuffer(buf, sizeof buf, &n); });
        EXPECT_EQ(5, e.getCode());
        EXPECT_EQ("VLT_Recv=0xffffffc4 details of handle " + std::to_string(7 + nonBlocking), detail(e));
        EXPECT_EQ("TALVEXSocketSSL::ReadBuffer", functionText(e));
        EXPECT_EQ(fake.detailAllocs(), fake.detailFrees());
    }
}

TEST_F(SecureSocketTransfer, UnconnectedReadsNothingAndBadArgumentsAreRefused) {
    TALVEXSocketSSL s(0);
    char buf[4];
    int n = -1;
    EXPECT_EQ(0, s.ReadBuffer(buf, sizeof buf, &n));
    EXPECT_EQ(0, n);
    EXPECT_EQ(PNX_EOF, s.getInputStream()->read(buf, sizeof buf));
    EXPECT_EQ(-1, s.getInputStream()->read());
    EXPECT_EQ(0, fake.count("VLT_Recv"));

    std::string function;
    coreErrorText<MOXIllegalArgumentError>([&] { s.ReadBuffer(nullptr, 4, &n); }, &function);
    EXPECT_EQ("TALVEXSocketSSL::ReadBuffer", function);
    coreErrorText<MOXIllegalArgumentError>([&] { s.getInputStream()->read(buf, 0); }, &function);
    EXPECT_EQ("TALVEXSocketSSL::ReadBuffer", function);
    coreErrorText<MOXIllegalArgumentError>([&] { s.ReadBuffer(buf, 4, nullptr); }, &function);
    n = 9;
    coreErrorText<MOXIllegalArgumentError>([&] { s.WriteBuffer(nullptr, 4, &n); }, &function);
    EXPECT_EQ("TALVEXSocketSSL::WriteBuffer", function);
    EXPECT_EQ(0, n) << "the count is cleared first";
    coreErrorText<MOXIllegalArgumentError>([&] { s.getOutputStream()->write("x", 0); }, &function);
    EXPECT_EQ("TALVEXSocketSSL::WriteBuffer", function);

    ExposedSocket x(1);
    coreErrorText<MOXIllegalArgumentError>([&] { x.internalWriteBuffer(nullptr, 1, &n); }, &function);
    EXPECT_EQ("TALVEXSocketSSL::internalWriteBuffer", function);
    n = 5;
    x.internalWriteBuffer("x", 0, &n);
    EXPECT_EQ(0, n) << "nothing to send is allowed";
    EXPECT_EQ(0, fake.count("VLT_Send"));

    connect(x);
    EXPECT_EQ("MOX_ASSERT(NULL != bytesReceived);",
              coreErrorText<MOXAssertError>([&] { x.receiveBuffered(buf, sizeof buf, 0, nullptr); }));
    EXPECT_EQ("MOX_ASSERT(NULL != message);",
              coreErrorText<MOXAssertError>([&] { x.receiveBuffered(nullptr, sizeof buf, 0, &n); }));
    EXPECT_EQ(0, fake.count("VLT_Recv"));
}

TEST_F(SecureSocketTransfer, StreamsReadAndWriteThroughTheSocket) {
    fake.pushRecv(0, "xyz", 3);
    TALVEXSocketSSL s(0);
    connect(s);
    EXPECT_EQ('x', s.getInputStream()->read());
    MOXByteBuffer b(8, 8);
    b << "<";
    EXPECT_EQ(2u, s.getInputStream()->read(b, 10));
    EXPECT_EQ("<yz", std::string(b.str(), b.pcount()));
    EXPECT_EQ(PNX_EOF, s.getInputStream()->read(b, 10));
    s.getOutputStream()->write("payload", 7);
    EXPECT_EQ("payload", fake.sent());
    EXPECT_EQ(&s, s.getInputStream()->getStreamSocket());
    s.getInputStream()->close();
    EXPECT_EQ(1, fake.count("VLT_CloseHandle"));
}

TEST_F(SecureSocketTransfer, BlockingWriteRepeatsSendUntilEveryByteIsTakenOrItFails) {
    fake.pushSend(0, 3);
    fake.pushSend(0, 4);
    TALVEXSocketSSL s(0);
    connect(s);
    int n = -1;
    s.WriteBuffer("0123456789", 10, &n);
    EXPECT_EQ(10, n);
    EXPECT_EQ("VLT_Send 10\nVLT_Send 7\nVLT_Send 3\n", fake.log());
    EXPECT_EQ("0123456789", fake.sent());

    fake.pushSend(-23, 0);
    TALVEXException e = toolkitError([&] { s.WriteBuffer("abc", 3, &n); });
    EXPECT_EQ(5, e.getCode());
    EXPECT_EQ("VLT_Send=0xffffffe9 details of handle 7", detail(e));
    EXPECT_EQ("TALVEXSocketSSL::WriteBuffer", functionText(e));
}

TEST_F(SecureSocketTransfer, BlockingModeIgnoresTheTimeLimitAndTakesAMissingAlertAsTheEnd) {
    fake.pushRecv(0, "data", 4);
    fake.pushRecv(-12, "", 0);
    TALVEXSocketSSL s(0);
    connect(s);
    EXPECT_EQ(1, s.getInputStream()->setTimeout(5));
    char buf[8];
    EXPECT_EQ(4u, s.getInputStream()->read(buf, sizeof buf));
    EXPECT_EQ(0, fake.count("VLT_Select")) << "no waiting slices in blocking mode";
    int n = -1;
    EXPECT_EQ(0, s.ReadBuffer(buf, sizeof buf, &n)) << "closed without alert: the end, not an error";
    EXPECT_EQ(0, n);
}

TEST_F(SecureSocketTransfer, NonBlockingWriteIsCutIntoPiecesOfAtMost32768) {
    TALVEXSocketSSL s(1);
    connect(s);
    std::string data(3 * 32768 + 1, '\0');
    for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 7 + 3);
    int n = 0;
    s.WriteBuffer(data.data(), static_cast<unsigned>(data.size()), &n);
    EXPECT_EQ(static_cast<int>(data.size()), n);
    EXPECT_EQ(
        "VLT_Select w 3\nVLT_Send 32768\nVLT_Select w 3\nVLT_Send 32768\n"
        "VLT_Select w 3\nVLT_Send 32768\nVLT_Select w 3\nVLT_Send 1\n",
        fake.log());
    EXPECT_TRUE(data == fake.sent());

    // A smaller send buffer makes smaller pieces.
    fake.setOption(0x1001, 1000);
    TALVEXSocketSSL small(1);
    connect(small);
    small.WriteBuffer(data.data(), 2500, &n);
    EXPECT_EQ(2500, n);
    EXPECT_EQ(3, fake.count("VLT_Send"));
    EXPECT_NE(std::string::npos, fake.log().find("VLT_Send 1000\n"));
    EXPECT_NE(std::string::npos, fake.log().find("VLT_Send 500\n"));
}

TEST_F(SecureSocketTransfer, NonBlockingSendWaitsOnWouldBlockAndFlushesWhatTheLibraryHolds) {
    fake.pushSend(-23, 0);   // nothing taken: wait again
    fake.pushSend(-23, 4);   // part taken
    fake.pushSend(-23, -1);  // the rest taken, but held back
    fake.pushSend(-23, 0);   // the first push-out would block
    ExposedSocket s(1);
    connect(s);
    int n = 0;
    s.internalWriteBuffer("0123456789", 10, &n);
    EXPECT_EQ(10, n);
    EXPECT_EQ(
        "VLT_Select w 3\nVLT_Send 10\nVLT_Select w 3\nVLT_Send 10\nVLT_Select w 3\nVLT_Send 6\n"
        "VLT_Send null 0\nVLT_Send null 0\n",
        fake.log());
    EXPECT_EQ("0123456789", fake.sent());
}

TEST_F(SecureSocketTransfer, NonBlockingSendFailureIsCode5FromInternalWriteBuffer) {
    fake.pushSend(-60, 0);
    TALVEXSocketSSL s(1);
    connect(s);
    int n = 0;
    TALVEXException e = toolkitError([&] { s.WriteBuffer("abc", 3, &n); });
    EXPECT_EQ(5, e.getCode());
    EXPECT_EQ("VLT_Send=0xffffffc4 details of handle 7", detail(e));
    EXPECT_EQ("TALVEXSocketSSL::internalWriteBuffer", functionText(e));

    fake.pushResult("VLT_Select", -4);
    e = toolkitError([&] { s.WriteBuffer("abc", 3, &n); });
    EXPECT_EQ("VLT_Send=0xfffffffc details of handle 7", detail(e)) << "a failed wait is reported for the send";
}

TEST_F(SecureSocketTransfer, ReceiveBufferIsSizedFromTheReceiveBufferOption) {
    fake.setOption(0x1002, 100);
    fake.pushRecv(0, "abcdefghij", 10);
    fake.pushRecv(0, "KLM", 3);
    TALVEXSocketSSL s(1);
    connect(s);
    char buf[64];
    int n = 0;
    EXPECT_EQ(1, s.ReadBuffer(buf, 3, &n));
    EXPECT_EQ("abc", std::string(buf, static_cast<size_t>(n)));
    EXPECT_EQ(1, s.ReadBuffer(buf, 3, &n));
    EXPECT_EQ("def", std::string(buf, static_cast<size_t>(n)));
    EXPECT_EQ(1, s.ReadBuffer(buf, 64, &n));
    EXPECT_EQ("ghij", std::string(buf, static_cast<size_t>(n)));
    EXPECT_EQ("VLT_Recv 100\n", fake.log()) << "served from the buffer";
    EXPECT_EQ(1, s.ReadBuffer(buf, 3, &n));
    EXPECT_EQ("KLM", std::string(buf, static_cast<size_t>(n)));
    EXPECT_EQ(0, s.ReadBuffer(buf, 3, &n));
    EXPECT_EQ("VLT_Recv 100\nVLT_Recv 100\nVLT_Recv 100\n", fake.log());
}

TEST_F(SecureSocketTransfer, WithoutTimeLimitTheWaitIsPolledEveryThreeSeconds) {
    fake.pushRecv(-23, "", 0);
    fake.pushResult("VLT_Select", -54);
    fake.pushResult("VLT_Select", 2);
    fake.pushResult("VLT_Select", 0);  // returned, but the handle is not ready
    fake.pushRecv(0, "late", 4);
    TALVEXSocketSSL s(1);
    connect(s);
    char buf[16];
    EXPECT_EQ(4u, s.getInputStream()->read(buf, sizeof buf));
    EXPECT_EQ("late", std::string(buf, 4));
    EXPECT_EQ(
        "VLT_Recv 16384\nVLT_Select r 3\nVLT_Select r 3\nVLT_Select r 3\nVLT_Select r 3\nVLT_Recv 16384\n",
        fake.log());
}

TEST_F(SecureSocketTransfer, TimeLimitMakesASilentReadThrowTimeout) {
    fake.pushRecv(-23, "", 0);
    fake.setSelectDefault(-54);
    TALVEXSocketSSL s(1);
    connect(s);
    EXPECT_EQ(1, s.getInputStream()->setTimeout(5));
    char buf[16];
    EXPECT_THROW(s.getInputStream()->read(buf, sizeof buf), PNXIOTimeoutException);
    EXPECT_EQ("VLT_Recv 16384\nVLT_Select r 5\n", fake.log()) << "the slice is the time limit";

    // The socket stays usable.
    fake.setSelectDefault(1);
    fake.pushRecv(0, "ok", 2);
    EXPECT_EQ(2u, s.getInputStream()->read(buf, sizeof buf));
}

TEST_F(SecureSocketTransfer, CancelFromAnotherThreadEndsTheWait) {
    fake.pushRecv(-23, "", 0);
    fake.setSelectDefault(-54);
    TALVEXSocketSSL s(1);
    connect(s);
    TALVEXSocketInputStream* in = s.getInputStream();
    EXPECT_EQ(1, in->setCancel(1));
    std::thread canceller([in] {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        in->cancel();
    });
    char buf[16];
    auto t = Clock::now();
    EXPECT_THROW(in->read(buf, sizeof buf), PNXIOCancelException);
    canceller.join();
    EXPECT_GE(secondsSince(t), 0.15);
    EXPECT_LT(secondsSince(t), 10.0);
    EXPECT_NE(std::string::npos, fake.log().find("VLT_Select r 1\n")) << "cancellation waits in one-second slices";
    EXPECT_EQ(1, in->getCancel());
}

TEST_F(SecureSocketTransfer, TraceFileThatCannotBeOpenedLeavesTracingOffSilently) {
    fake.pushRecv(0, "0123456789ABCDEF", 16);
    TALVEXSocketSSL s(1);
    connect(s);
    s.echo("no/such/folder/trace", "rb");
    char buf[16];
    int n = 0;
    EXPECT_EQ(1, s.ReadBuffer(buf, 12, &n));
    EXPECT_EQ(12, n);
    s.echo(nullptr);
}
