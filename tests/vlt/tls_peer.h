// Test peers for the security library: certificates made with the openssl
// command when a test first needs them, a TLS server thread built directly on
// OpenSSL, and "openssl s_server" run as a child process.
#ifndef VLT_TEST_TLS_PEER_H
#define VLT_TEST_TLS_PEER_H

#include <openssl/ssl.h>

#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vlttest {

struct Certificates {
    std::string dir;
    std::string ca, caKey;                    // the test CA
    std::string server, serverKey;            // CA-signed: localhost, 127.0.0.1, ::1
    std::string selfSigned, selfSignedKey;    // localhost, 127.0.0.1, signed by itself
    std::string wrongHost, wrongHostKey;      // CA-signed for wrong.example.org only
    std::string expired, expiredKey;          // CA-signed for localhost, expired in 2020
    std::string client, clientKey;            // CA-signed client certificate
    std::string otherClient, otherClientKey;  // client certificate of an unrelated CA
};

// Made with the openssl command when a test first needs them, in the build
// tree, and shared by the test processes of that tree for a while.
const Certificates& certificates();

// A folder of this test process for files of its own, removed at exit.
const std::string& scratchDir();

// Runs a shell command; throws with its output when it fails.
void runCommand(const std::string& command);

// Deterministic test data, so a transfer can be checked byte by byte.
unsigned char patternByte(std::size_t index, unsigned seed);
std::string pattern(std::size_t length, unsigned seed);

enum class PeerMode {
    Echo,            // sends back what it reads until the client closes
    SinkThenSource,  // reads sinkBytes, checks them, sends sourceBytes, close_notify
    Greeting,        // sends "hello\n" (after greetingDelayMs) and close_notify
    AbruptClose,     // reads one line, then drops TCP without close_notify
    DropAtOnce,      // drops TCP right after the handshake
};

struct PeerOptions {
    std::string certificate;
    std::string key;
    int minVersion = 0;
    int maxVersion = 0;
    bool requireClientCertificate = false;
    std::string clientCa;
    PeerMode mode = PeerMode::Echo;
    std::size_t sinkBytes = 0;
    std::size_t sourceBytes = 0;
    bool ipv6 = false;
    int connections = 1;
    int greetingDelayMs = 0;
};

// A TLS server on a loopback port, one thread per connection.
class TlsPeer {
public:
    explicit TlsPeer(PeerOptions options);
    ~TlsPeer();
    TlsPeer(const TlsPeer&) = delete;
    TlsPeer& operator=(const TlsPeer&) = delete;

    int port() const { return port_; }
    bool listening() const { return listenFd_ >= 0; }

    // Waits for the served connections to end; the results below are final afterwards.
    void finish();

    std::string handshakeError() const;
    int version() const;
    std::string serverName() const;
    std::string clientSubject() const;
    bool uploadMatched() const;
    std::size_t bytesReceived() const;
    int handshakes() const;

private:
    void acceptLoop();
    void serve(int fd);

    PeerOptions options_;
    SSL_CTX* ctx_ = nullptr;
    int listenFd_ = -1;
    int stopPipe_[2] = {-1, -1};
    int port_ = 0;
    std::thread acceptor_;
    std::vector<std::thread> workers_;
    bool finished_ = false;

    mutable std::mutex mutex_;
    std::string handshakeError_;
    int version_ = 0;
    std::string serverName_;
    std::string clientSubject_;
    bool uploadMatched_ = false;
    std::size_t bytesReceived_ = 0;
    int handshakes_ = 0;
};

// "openssl s_server" as a child process on a loopback port; stopped by its
// process id when the object goes away.
class OpensslServer {
public:
    explicit OpensslServer(const std::vector<std::string>& extraArguments);
    ~OpensslServer();
    OpensslServer(const OpensslServer&) = delete;
    OpensslServer& operator=(const OpensslServer&) = delete;

    int port() const { return port_; }
    bool ready() const { return ready_; }

private:
    pid_t pid_ = -1;
    int port_ = 0;
    bool ready_ = false;
};

// A port on 127.0.0.1 that nobody listens on (bound, so nobody takes it).
class RefusingPort {
public:
    RefusingPort();
    ~RefusingPort();
    int port() const { return port_; }

private:
    int fd_ = -1;
    int port_ = 0;
};

int freePort();

}  // namespace vlttest

#endif
