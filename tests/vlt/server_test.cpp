// The library's small server side: bind, listen, accept and the server
// handshake, with the library's own client and with "openssl s_client".
#include <gtest/gtest.h>

#include "tls_peer.h"
#include "vlt_client.h"

#include <thread>

using namespace vlttest;

namespace {

std::string serverDocument(Elements more = {}) {
    Elements e{{"serverCertificate", certificates().server}, {"serverKey", certificates().serverKey}};
    e.insert(e.end(), more.begin(), more.end());
    return configDocument(e);
}

int boundPort(VLT_HANDLE h) {
    sockaddr_storage a;
    int length = sizeof a;
    EXPECT_EQ(VLT_GetSockName(h, &a, &length, 0), VLT_S_OK);
    return ntohs(reinterpret_cast<sockaddr_in&>(a).sin_port);
}

// Binds to a free loopback port and listens; answers the port.
int listenOnLoopback(VLT_HANDLE h) {
    sockaddr_storage any = loopback(0);
    EXPECT_EQ(VLT_Bind(h, &any, sizeof any, 0), VLT_S_OK) << lastError(h);
    EXPECT_EQ(VLT_Listen(h, 4, 0), VLT_S_OK) << lastError(h);
    return boundPort(h);
}

// Accepts one connection, runs the handshake and echoes one line.
void echoOnce(VLT_HANDLE listener, int* handshake) {
    VLT_HANDLE accepted = 0;
    sockaddr_storage peer;
    int length = sizeof peer;
    if (VLT_Accept(listener, &accepted, &peer, &length, 0) != VLT_S_SECURE_PENDING) return;
    *handshake = VLT_EstablishSecure(accepted, 0);
    if (*handshake == VLT_S_OK) {
        std::string line;
        char buffer[256];
        while (line.find('\n') == std::string::npos) {
            int n = 0;
            if (VLT_Recv(accepted, buffer, sizeof buffer, 0, &n, 0) != VLT_S_OK || n == 0) break;
            line.append(buffer, static_cast<std::size_t>(n));
        }
        int sent = 0;
        VLT_Send(accepted, line.data(), static_cast<int>(line.size()), 0, &sent, 0);
    }
    VLT_CloseHandle(&accepted, 0, nullptr);
}

TEST(Server, EchoWithTheLibrarysClient) {
    Handle server;
    ASSERT_EQ(server.open(serverDocument()), VLT_S_OK);
    int port = listenOnLoopback(server.h);
    int handshake = -1;
    std::thread thread(echoOnce, server.h, &handshake);

    Handle c;
    ASSERT_EQ(c.open(configDocument({{"caFile", certificates().ca}})), VLT_S_OK);
    EXPECT_EQ(connectUrl(c.h, "https://localhost:" + std::to_string(port) + "/"), VLT_S_OK) << lastError(c.h);
    EXPECT_EQ(sendAll(c.h, "served\n", false), VLT_S_OK);
    std::string reply;
    EXPECT_EQ(receiveAll(c.h, reply), VLT_S_OK);
    EXPECT_EQ(reply, "served\n");
    thread.join();
    EXPECT_EQ(handshake, VLT_S_OK);
}

TEST(Server, RequiresClientCertificate) {
    Handle server;
    ASSERT_EQ(server.open(serverDocument({{"requireClientCertificate", "true"}, {"caFile", certificates().ca}})), VLT_S_OK);
    ASSERT_EQ(VLT_Bind_Url(server.h, "https://127.0.0.1:0/", 0), VLT_E_INVALID_ARGUMENT) << "port 0 is no URL port";
    int port = listenOnLoopback(server.h);
    std::string url = "https://127.0.0.1:" + std::to_string(port) + "/";

    int handshake = -1;
    std::thread refused(echoOnce, server.h, &handshake);
    {
        Handle c;
        ASSERT_EQ(c.open(configDocument({{"caFile", certificates().ca}})), VLT_S_OK);
        EXPECT_EQ(connectUrl(c.h, url), VLT_E_REFUSED);
        EXPECT_EQ(lastError(c.h).rfind("the server requires a client certificate", 0), 0u) << lastError(c.h);
    }
    refused.join();
    EXPECT_EQ(handshake, VLT_E_HANDSHAKE);

    std::thread accepted(echoOnce, server.h, &handshake);
    Handle c;
    ASSERT_EQ(c.open(configDocument({{"caFile", certificates().ca},
                                     {"clientCertificate", certificates().client},
                                     {"clientKey", certificates().clientKey}})),
              VLT_S_OK);
    EXPECT_EQ(connectUrl(c.h, url), VLT_S_OK) << lastError(c.h);
    EXPECT_EQ(sendAll(c.h, "mutual\n", false), VLT_S_OK);
    std::string reply;
    EXPECT_EQ(receiveAll(c.h, reply), VLT_S_OK);
    EXPECT_EQ(reply, "mutual\n");
    accepted.join();
    EXPECT_EQ(handshake, VLT_S_OK);
}

TEST(Server, NonBlockingAcceptAndBindUrl) {
    Handle server;
    ASSERT_EQ(server.open(serverDocument()), VLT_S_OK);
    int port = freePort();
    ASSERT_EQ(VLT_Bind_Url(server.h, ("https://127.0.0.1:" + std::to_string(port)).c_str(), 0), VLT_S_OK)
        << lastError(server.h);
    ASSERT_EQ(VLT_Listen(server.h, 4, 0), VLT_S_OK);
    int one = 1;
    ASSERT_EQ(VLT_SetSockOpt(server.h, VLT_FIONBIO, &one, 4, 0), VLT_S_OK);
    VLT_HANDLE accepted = 0;
    EXPECT_EQ(VLT_Accept(server.h, &accepted, nullptr, nullptr, 0), VLT_E_WOULD_BLOCK);
    EXPECT_EQ(accepted, 0u);
    EXPECT_EQ(waitFor(server.h, false, 100), VLT_E_TIMEOUT);

    std::thread client([port] {
        Handle c;
        if (c.open(configDocument({{"caFile", certificates().ca}})) != VLT_S_OK) return;
        if (connectUrl(c.h, "https://localhost:" + std::to_string(port)) == VLT_S_OK) sendAll(c.h, "nb\n", false);
    });
    ASSERT_EQ(waitFor(server.h, false, 5000), 1);
    ASSERT_EQ(VLT_Accept(server.h, &accepted, nullptr, nullptr, 0), VLT_S_SECURE_PENDING);
    EXPECT_EQ(VLT_EstablishSecure(accepted, 0), VLT_S_OK) << lastError(accepted);
    std::string line;
    EXPECT_EQ(receiveAll(accepted, line, 3), VLT_S_OK);
    EXPECT_EQ(line, "nb\n");
    VLT_CloseHandle(&accepted, 0, nullptr);
    client.join();
}

TEST(Server, ListeningNeedsACertificateAndAFreePort) {
    Handle server;
    ASSERT_EQ(server.open(nullptr), VLT_S_OK);
    sockaddr_storage any = loopback(0);
    ASSERT_EQ(VLT_Bind(server.h, &any, sizeof any, 0), VLT_S_OK);
    EXPECT_EQ(VLT_Listen(server.h, 4, 0), VLT_E_CONFIG);
    EXPECT_EQ(lastError(server.h), "a listening handle needs serverCertificate and serverKey in its configuration document");
    VLT_HANDLE accepted = 0;
    EXPECT_EQ(VLT_Accept(server.h, &accepted, nullptr, nullptr, 0), VLT_E_INVALID_ARGUMENT);
    EXPECT_EQ(VLT_Connect_Url(server.h, "https://127.0.0.1:1/", 0), VLT_E_INVALID_ARGUMENT);

    Handle first, second;
    ASSERT_EQ(first.open(serverDocument()), VLT_S_OK);
    ASSERT_EQ(second.open(serverDocument()), VLT_S_OK);
    ASSERT_EQ(VLT_Bind(first.h, &any, sizeof any, 0), VLT_S_OK);
    ASSERT_EQ(VLT_Listen(first.h, 1, 0), VLT_S_OK);
    sockaddr_storage taken = loopback(boundPort(first.h));
    EXPECT_EQ(VLT_Bind(second.h, &taken, sizeof taken, 0), VLT_E_SOCKET);
    EXPECT_NE(lastError(second.h).find("Address already in use"), std::string::npos) << lastError(second.h);
}

TEST(Server, ServesOpensslSClient) {
    Handle server;
    ASSERT_EQ(server.open(serverDocument()), VLT_S_OK);
    int port = listenOnLoopback(server.h);
    int handshake = -1;
    std::thread thread(echoOnce, server.h, &handshake);
    std::string out = scratchDir() + "/s_client.out";
    runCommand("echo 'from s_client' | timeout 10 openssl s_client -quiet -verify_return_error -CAfile '" +
               certificates().ca + "' -verify_hostname localhost -connect 127.0.0.1:" + std::to_string(port) +
               " > '" + out + "' 2>/dev/null");
    thread.join();
    EXPECT_EQ(handshake, VLT_S_OK);
    FILE* f = std::fopen(out.c_str(), "r");
    ASSERT_NE(f, nullptr);
    char line[64] = {};
    EXPECT_NE(std::fgets(line, sizeof line, f), nullptr);
    std::fclose(f);
    EXPECT_STREQ(line, "from s_client\n");
}

}  // namespace
