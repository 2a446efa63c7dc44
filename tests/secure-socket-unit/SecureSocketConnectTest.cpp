// The secure socket's connection against a stand-in security library that
// answers as each case needs and records what it was asked.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <tuple>

#include "FakeCrypto.h"
#include "SecureSocketTestSupport.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/I18NString.h"
#include "transport/TALVEXCryptoError.h"
#include "transport/TALVEXSocketSSL.h"

using namespace securetest;

namespace {
const char kConfig[] = "<sessionConfigDocument><caFile>/etc/ca.pem</caFile></sessionConfigDocument>";
const char kUrl[] = "https://service.test:8443/soap/endpoint";

std::string addressTextOf(const TALVEXSocket& s) {
    MOXByteBuffer text(64, 64);
    s.getIPAddress(text);
    return text.str();
}

class SecureSocketConnect : public ::testing::Test {
protected:
    FakeCrypto fake;
};
}  // namespace

TEST_F(SecureSocketConnect, DocumentGainsTheProtocolFamilyBeforeTheFirstClosingTag) {
    const char twice[] = "<sessionConfigDocument></sessionConfigDocument></sessionConfigDocument>";
    const struct {
        const char* what;
        std::function<void(TALVEXSocketSSL&)> open;
        std::string expected;
    } rows[] = {
        {"IPv4 target", [](TALVEXSocketSSL& s) { s.open(443, ipv4(), kConfig, 0); },
         "<sessionConfigDocument><caFile>/etc/ca.pem</caFile><protocolFamily>IPv4</protocolFamily>"
         "</sessionConfigDocument>"},
        {"IPv6 target", [](TALVEXSocketSSL& s) { s.open(443, ipv6(), kConfig, 0); },
         "<sessionConfigDocument><caFile>/etc/ca.pem</caFile><protocolFamily>IPv6</protocolFamily>"
         "</sessionConfigDocument>"},
        {"URL resolved to IPv6",
         [this](TALVEXSocketSSL& s) {
             fake.setUriFamily(AF_INET6);
             s.open(kUrl, kConfig, 0);
         },
         "<sessionConfigDocument><caFile>/etc/ca.pem</caFile><protocolFamily>IPv6</protocolFamily>"
         "</sessionConfigDocument>"},
        {"only the first closing tag", [&](TALVEXSocketSSL& s) { s.open(443, ipv4(), twice, 0); },
         "<sessionConfigDocument><protocolFamily>IPv4</protocolFamily></sessionConfigDocument>"
         "</sessionConfigDocument>"},
        {"missing document stands for an empty one", [](TALVEXSocketSSL& s) { s.open(443, ipv4(), nullptr, 0); },
         "<sessionConfigDocument><protocolFamily>IPv4</protocolFamily></sessionConfigDocument>"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        TALVEXSocketSSL s(0);
        r.open(s);
        EXPECT_EQ(r.expected, fake.lastConfig());
    }
}

TEST_F(SecureSocketConnect, DocumentWithoutClosingTagIsOutOfRangeAndNoSocketIsMade) {
    TALVEXSocketSSL s(0);
    EXPECT_THROW(s.open(443, ipv4(), "<sessionConfigDocument/>", 0), std::out_of_range);
    try {
        s.open(443, ipv4(), "<other></other>", 0);
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ("invalid string position", e.what());
    }
    EXPECT_EQ(0, fake.count("VLT_Socket"));
}

TEST_F(SecureSocketConnect, ConnectsByUrlThroughTheLibrary) {
    TALVEXSocketSSL s(0);
    s.open(kUrl, kConfig, 0);
    EXPECT_EQ(std::string("VLT_ResolveAddressFromURI ") + kUrl + "\nVLT_Socket\nVLT_Connect_Url 7 " + kUrl + "\n",
              fake.log());
    EXPECT_EQ(kUrl, fake.lastUrl());
    EXPECT_EQ("service.test:8443", s.getAuthority());
    EXPECT_EQ("255.255.255.255", addressTextOf(s)) << "the stored address is no address";
    EXPECT_EQ(0, s.getPort());
}

TEST_F(SecureSocketConnect, ConnectsByAddressWithThePortInTheTarget) {
    TALVEXSocketSSL s(0);
    s.prepare(8443, ipv4(1));
    s.open(0);
    EXPECT_EQ("VLT_Socket\nVLT_Connect 7 128\n", fake.log());
    sockaddr_storage target;
    fake.lastTarget(&target);
    EXPECT_EQ(AF_INET, target.ss_family);
    EXPECT_EQ(htons(8443), reinterpret_cast<sockaddr_in*>(&target)->sin_port);
    EXPECT_EQ(htonl(INADDR_LOOPBACK), reinterpret_cast<sockaddr_in*>(&target)->sin_addr.s_addr);
}

TEST_F(SecureSocketConnect, OpenByUrlOnAConnectedSocketChangesNothing) {
    const char other[] = "<sessionConfigDocument><caFile>other</caFile></sessionConfigDocument>";
    TALVEXSocketSSL s(0);
    s.open(kUrl, kConfig, 0);
    std::string before = fake.log();
    s.open("https://elsewhere.test:1/x", other, 0);
    s.open(1, ipv6(), other, 0);
    EXPECT_EQ(before, fake.log()) << "no library call";
    EXPECT_EQ("service.test:8443", s.getAuthority());

    // Reopening uses what the first open stored: URL and document.
    s.close();
    s.open(5);
    EXPECT_EQ(kUrl, fake.lastUrl());
    EXPECT_NE(std::string::npos, fake.lastConfig().find("/etc/ca.pem"));
}

TEST_F(SecureSocketConnect, Prepare) {
    TALVEXSocketSSL s(0);
    s.prepare(443, ipv4());
    s.prepare("https://user@host.test:99/path?q=1");
    EXPECT_EQ("255.255.255.255", addressTextOf(s)) << "by URL: the URL is kept and the address cleared";
    EXPECT_EQ(0, s.getPort());
    EXPECT_EQ("host.test:99", s.getAuthority()) << "user information is not part of the Host header";
    s.prepare(443, ipv4());
    EXPECT_EQ("127.0.0.1:443", s.getAuthority()) << "an address names itself";

    // No address stores the local marker, which cannot be opened.
    s.prepare(443, noAddress());
    EXPECT_EQ(0xFFFE, s.getIPAddress().ss_family);
    std::string function = "unset";
    EXPECT_EQ("MOX_ASSERT(FALSE);", coreErrorText<MOXAssertError>([&] { s.open(0); }, &function));
    EXPECT_EQ("", function);
    EXPECT_EQ(0, fake.count("VLT_Socket"));

    TALVEXException e = toolkitError([&] { s.open(443, 0); });
    EXPECT_EQ(0, e.getCode());
    EXPECT_EQ("TALVEXSocket::Open(1)", functionText(e)) << "port and time limit: not implemented";
}

TEST_F(SecureSocketConnect, SecurePendingRepeatsEstablishSecureWithinItsBudgetThenCostsAPause) {
    // Would-block answers queued, calls of VLT_EstablishSecure expected, pause expected.
    for (auto [wouldBlocks, establishCalls, pause] : {std::tuple{0, 1, false}, {4, 5, false}, {6, 6, true}}) {
        SCOPED_TRACE(wouldBlocks);
        fake.reset();
        fake.pushResult("VLT_Connect", -15);
        for (int i = 0; i < wouldBlocks; ++i) fake.pushResult("VLT_EstablishSecure", -23);
        TALVEXSocketSSL s(0);
        auto t = Clock::now();
        s.open(443, ipv4(), kConfig, 0);
        if (pause) {
            EXPECT_GE(secondsSince(t), 1.9) << "one pause of two seconds";
        } else {
            EXPECT_LT(secondsSince(t), 1.5) << "a pause lasts two seconds";
        }
        EXPECT_EQ(establishCalls, fake.count("VLT_EstablishSecure"));
        EXPECT_EQ(2, fake.count("VLT_Connect"));
        if (wouldBlocks == 0) {
            EXPECT_EQ("VLT_Socket\nVLT_Connect 7 128\nVLT_EstablishSecure 7\nVLT_Connect 7 128\n", fake.log());
        }
    }
}

TEST_F(SecureSocketConnect, RefusedForGoodFailsAtOnceWithCode5ByAddressAndByUrlAtConnectOrHandshake) {
    // By URL, refused by the handshake (else by the connect), expected text.
    for (auto [byUrl, inHandshake, text] :
         {std::tuple{false, false, "VLT_Connect=0xfffffff3 details of handle 7"},
          {true, false, "VLT_Connect=0xfffffff3 details of handle 7"},
          {false, true, "VLT_EstablishSecure=0xfffffff3 details of handle 7"}}) {
        SCOPED_TRACE(text);
        fake.reset();
        fake.pushResult(byUrl ? "VLT_Connect_Url" : "VLT_Connect", inHandshake ? -15 : -13);
        fake.pushResult("VLT_EstablishSecure", -13);
        TALVEXSocketSSL s(0);
        auto t = Clock::now();
        TALVEXException e = toolkitError([&] { byUrl ? s.open(kUrl, kConfig, 0) : s.open(443, ipv4(), kConfig, 0); });
        EXPECT_LT(secondsSince(t), 1.5) << "no pause";
        EXPECT_EQ(5, e.getCode());
        EXPECT_EQ(0xF2A16A58u, catalogMessage(e).getNumber());
        EXPECT_EQ(text, detail(e));
        EXPECT_EQ("TALVEXSocketSSL::open()", functionText(e));
        EXPECT_EQ("TALVEXSocketSSL", e.getBackTrace().at(0).unit);
        EXPECT_EQ(1, fake.count(byUrl ? "VLT_Connect_Url" : "VLT_Connect"));
        EXPECT_EQ(1, fake.detailAllocs());
        EXPECT_EQ(1, fake.detailFrees()) << "the library's text is given back";
    }
}

TEST_F(SecureSocketConnect, FiveFailedAttemptsWithFourPausesUnlessAPauseWouldOutlastTheTimeLimit) {
    // Time limit, failure status, attempts expected, least time taken, detail.
    for (auto [limit, status, attempts, least, text] :
         {std::tuple{0, -60, 5, 7.9, "VLT_Connect=0xffffffc4 details of handle 7"},
          {1, -2, 1, 0.0, "VLT_Connect=0xfffffffe details of handle 7"},
          {3, -2, 2, 1.9, "VLT_Connect=0xfffffffe details of handle 7"}}) {
        SCOPED_TRACE(limit);
        fake.reset();
        for (int i = 0; i < 5; ++i) fake.pushResult("VLT_Connect", status);
        TALVEXSocketSSL s(0);
        auto t = Clock::now();
        TALVEXException e = toolkitError([&] { s.open(443, ipv4(), kConfig, limit); });
        EXPECT_GE(secondsSince(t), least);
        EXPECT_EQ(5, e.getCode());
        EXPECT_LT(secondsSince(t), limit > 0 ? limit : 12.0);
        EXPECT_EQ(attempts, fake.count("VLT_Connect"));
        EXPECT_EQ(limit > 0 ? attempts : 0, fake.count("VLT_SetSockOpt")) << "the library waits what is left";
        EXPECT_EQ(text, detail(e));
    }
}

// The catalog parameters as text: texts as they are, numbers in decimal.
std::vector<std::string> parametersOf(const MOXMessage& m) {
    std::vector<std::string> texts;
    for (const auto& p : m.getParameters())
        texts.push_back(p.isNumber() ? std::to_string(p.getNumber()) : std::string(p.getText().str()));
    return texts;
}

TEST_F(SecureSocketConnect, NoSocketOrNoAddressIsCode31ByUrlOrCode1) {
    const struct {
        const char* what;
        std::function<void(FakeCrypto&)> arrange;
        std::function<void(TALVEXSocketSSL&)> open;
        int code;
        unsigned number;
        std::vector<std::string> parameters;
        std::string detail, function;
    } rows[] = {
        {"socket refused, by URL", [](FakeCrypto& f) { f.pushResult("VLT_Socket", -5); },
         [](TALVEXSocketSSL& s) { s.open(kUrl, kConfig, 0); }, 31, 0xF2AF1B68u, {kUrl, "-5"},
         "socket refused by the fake", "VLT_Socket=0xfffffffb TALVEXSocketSSL::open()"},
        {"socket refused, by address", [](FakeCrypto& f) { f.pushResult("VLT_Socket", -5); },
         [](TALVEXSocketSSL& s) { s.open(8443, ipv4(), kConfig, 0); }, 1, 0xF2A4DB68u, {"127.0.0.1", "8443", "-5"},
         "socket refused by the fake", "VLT_Socket=0xfffffffb TALVEXSocketSSL::open()"},
        {"unresolved URL", [](FakeCrypto& f) { f.setUriFamily(0xFFFF); },
         [](TALVEXSocketSSL& s) { s.open(kUrl, kConfig, 0); }, 1, 0xF2A4DB68u, {kUrl, "0"}, "",
         "TALVEXSocketSSL::open()"},
        {"no address", [](FakeCrypto&) {}, [](TALVEXSocketSSL& s) { s.open(443, noAddress(), kConfig, 0); }, 1,
         0xF2A4DB68u, {"unprintable", "443"}, "", "TALVEXSocketSSL::open()"},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.what);
        fake.reset();
        r.arrange(fake);
        TALVEXSocketSSL s(0);
        TALVEXException e = toolkitError([&] { r.open(s); });
        EXPECT_EQ(r.code, e.getCode());
        EXPECT_EQ(r.number, catalogMessage(e).getNumber());
        EXPECT_EQ(r.parameters, parametersOf(catalogMessage(e)));
        EXPECT_EQ(r.detail, detail(e));
        EXPECT_EQ(r.function, functionText(e));
        EXPECT_EQ(0, fake.count(r.detail.empty() ? "VLT_Socket" : "VLT_Connect_Url"));
        EXPECT_EQ(fake.detailAllocs(), fake.detailFrees());
    }
}

TEST_F(SecureSocketConnect, LeftoverHandleIsClosedBeforeTheNextOpen) {
    fake.pushResult("VLT_Connect", -13);
    TALVEXSocketSSL s(0);
    toolkitError([&] { s.open(443, ipv4(), kConfig, 0); });
    s.open(443, ipv4(), kConfig, 0);
    EXPECT_EQ(
        "VLT_Socket\nVLT_Connect 7 128\nVLT_CryptoGetLastErrorDetails 7\n"
        "VLT_CloseHandle 7\nVLT_Socket\nVLT_Connect 8 128\n",
        fake.log());
}

TEST_F(SecureSocketConnect, CloseReleasesTheHandleAndReportsAFailure) {
    TALVEXSocketSSL s(0);
    s.open(443, ipv4(), kConfig, 0);
    s.close();
    EXPECT_EQ(1, fake.count("VLT_CloseHandle"));
    s.close();
    EXPECT_EQ(1, fake.count("VLT_CloseHandle")) << "no handle, no call";

    s.open(443, ipv4(), kConfig, 0);
    fake.pushResult("VLT_CloseHandle", -4);
    TALVEXException e = toolkitError([&] { s.close(); });
    EXPECT_EQ(5, e.getCode());
    EXPECT_EQ("close refused by the fake", detail(e));
    EXPECT_EQ("TALVEXSocketSSL::Close", functionText(e));
    EXPECT_EQ(fake.detailAllocs(), fake.detailFrees());
    s.close();
    EXPECT_EQ(2, fake.count("VLT_CloseHandle")) << "the handle is gone even after a failure";
}

TEST_F(SecureSocketConnect, CryptoErrorTextIsCallNameStatusAndDetails) {
    TALVEXSocketSSL s(0);
    {
        TALVEXCryptoError error(&s, 7, "VLT_Send", 23);
        I18NString text;
        EXPECT_EQ("VLT_Send=0x17 details of handle 7", error.toString(text).str());
    }
    {
        TALVEXCryptoError error(&s, 9, "", 23);
        I18NString text("old");
        EXPECT_EQ("details of handle 9", error.toString(text).str());
    }
    {
        TALVEXCryptoError error(&s, 9, nullptr, 0xfffffff3u);
        I18NString text;
        EXPECT_EQ("details of handle 9", error.toString(text).str());
    }
    EXPECT_EQ(3, fake.detailAllocs());
    EXPECT_EQ(3, fake.detailFrees());
}

TEST_F(SecureSocketConnect, TraceFileIsNamedAfterTheProcessInTheLogsFolder) {
    char pattern[] = "/tmp/talvex-ssl-trace-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(pattern));
    const std::string root = pattern;
    ASSERT_EQ(0, mkdir((root + "/work").c_str(), 0700));
    ASSERT_EQ(0, mkdir((root + "/logs").c_str(), 0700));
    char cwd[4096];
    ASSERT_NE(nullptr, getcwd(cwd, sizeof cwd));
    ASSERT_EQ(0, chdir((root + "/work").c_str()));

    fake.pushRecv(0, "hello", 5);
    fake.pushSend(0, 2);
    {
        TALVEXSocketSSL s(0);
        s.echo("trace.txt");
        s.open(443, ipv4(), kConfig, 0);
        char buf[16];
        int n = 0;
        EXPECT_EQ(1, s.ReadBuffer(buf, sizeof buf, &n));
        EXPECT_EQ(5, n);
        EXPECT_EQ(0, s.ReadBuffer(buf, sizeof buf, &n)) << "end of the data";
        s.WriteBuffer("abc", 3, &n);
        EXPECT_EQ(3, n);
    }
    ASSERT_EQ(0, chdir(cwd));

    const std::string file = root + "/logs/" + std::to_string(getpid()) + "_trace.txt";
    std::ifstream in(file, std::ios::binary);
    ASSERT_TRUE(in.good()) << file;
    std::stringstream text;
    text << in.rdbuf();
    EXPECT_EQ("\n<read[0005]>\nhello\n<write[2]>\nab\n<write[1]>\nc", text.str());
    std::remove(file.c_str());
    rmdir((root + "/logs").c_str());
    rmdir((root + "/work").c_str());
    rmdir(root.c_str());
}

TEST_F(SecureSocketConnect, NonBlockingConnectSetsUpBufferChunkAndMode) {
    TALVEXSocketSSL s(1);
    s.open(443, ipv4(), kConfig, 0);
    EXPECT_EQ(
        "VLT_Socket\nVLT_Connect 7 128\nVLT_GetSockOpt 0x1002 4\nVLT_GetSockOpt 0x1001 4\n"
        "VLT_SetSockOpt 0x8004667e 1 4\n",
        fake.log());
}

TEST_F(SecureSocketConnect, NonBlockingSetupFailuresAreAssertions) {
    {
        fake.pushResult("VLT_GetSockOpt", -3);
        TALVEXSocketSSL s(1);
        EXPECT_EQ("MOX_ASSERT(vlt_stat == VLT_S_OK);",
                  coreErrorText<MOXAssertError>([&] { s.open(443, ipv4(), kConfig, 0); }));
    }
    {
        fake.setOption(0x1001, 0);
        TALVEXSocketSSL s(1);
        EXPECT_EQ("MOX_ASSERT(sendBufSz > 0);", coreErrorText<MOXAssertError>([&] { s.open(443, ipv4(), kConfig, 0); }));
    }
    {
        fake.setOption(0x1001, 4096);
        fake.pushResult("VLT_SetSockOpt", -3);
        TALVEXSocketSSL s(1);
        EXPECT_EQ("MOX_ASSERT(vlt_stat == VLT_S_OK);",
                  coreErrorText<MOXAssertError>([&] { s.open(443, ipv4(), kConfig, 0); }));
    }
}
