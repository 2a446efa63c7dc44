#include "tls_peer.h"

#include <openssl/err.h>
#include <openssl/x509.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace vlttest {
namespace {

constexpr int kPeerTimeoutSec = 10;

const char* kOpensslConfig = R"([ req ]
distinguished_name = dn
prompt = no
[ dn ]
CN = TALVEX test CA
[ ca_ext ]
basicConstraints = critical,CA:TRUE
keyUsage = critical,keyCertSign,cRLSign
subjectKeyIdentifier = hash
[ server_ext ]
basicConstraints = CA:FALSE
subjectAltName = DNS:localhost,IP:127.0.0.1,IP:::1
extendedKeyUsage = serverAuth
[ wrong_ext ]
basicConstraints = CA:FALSE
subjectAltName = DNS:wrong.example.org
extendedKeyUsage = serverAuth
[ client_ext ]
basicConstraints = CA:FALSE
extendedKeyUsage = clientAuth
[ ca ]
default_ca = testca
[ testca ]
database = index.txt
new_certs_dir = .
serial = serial.txt
default_md = sha256
policy = any_name
unique_subject = no
copy_extensions = none
[ any_name ]
commonName = supplied
)";

// Certificates are made once per build tree and shared by the test processes
// (ctest runs every test case in a process of its own); they are made again
// when older than this, long before their three days of validity run out.
constexpr auto kCertificateLifetime = std::chrono::hours(12);

std::string certificateFolder() { return std::string(TALVEX_TEST_BINARY_DIR) + "/vlt-test-certificates"; }

bool fresh(const std::string& folder) {
    std::error_code ec;
    auto stamp = std::filesystem::last_write_time(folder + "/complete", ec);
    if (ec) return false;
    return std::filesystem::file_time_type::clock::now() - stamp < kCertificateLifetime;
}

struct ScratchFolder {
    std::string path;
    ~ScratchFolder() {
        if (!path.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(path, ignored);
        }
    }
};

void makeCertificates(const std::string& folder) {
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/openssl.cnf") << kOpensslConfig;
    std::ofstream(folder + "/index.txt");
    std::ofstream(folder + "/serial.txt") << "10\n";
    const std::string cd = "cd '" + folder + "' && ";
    const std::string newKey = " -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes ";
    auto request = [&](const std::string& name, const std::string& cn) {
        runCommand(cd + "openssl req -new -config openssl.cnf" + newKey + "-keyout " + name + ".key -out " + name +
                   ".csr -subj '/CN=" + cn + "'");
    };
    auto sign = [&](const std::string& name, const std::string& ca, const std::string& ext, int serial) {
        runCommand(cd + "openssl x509 -req -in " + name + ".csr -CA " + ca + ".pem -CAkey " + ca + ".key -set_serial " +
                   std::to_string(serial) + " -days 3 -extfile openssl.cnf -extensions " + ext + " -out " + name + ".pem");
    };
    runCommand(cd + "openssl req -x509 -new -config openssl.cnf -extensions ca_ext" + newKey +
               "-keyout ca.key -out ca.pem -days 3");
    runCommand(cd + "openssl req -x509 -new -config openssl.cnf -extensions ca_ext" + newKey +
               "-keyout otherca.key -out otherca.pem -days 3 -subj '/CN=Unrelated test CA'");
    request("server", "localhost");
    sign("server", "ca", "server_ext", 2);
    runCommand(cd + "openssl req -x509 -new -config openssl.cnf -extensions server_ext" + newKey +
               "-keyout self.key -out self.pem -days 3 -subj '/CN=localhost'");
    request("wrong", "wrong.example.org");
    sign("wrong", "ca", "wrong_ext", 3);
    // Validity in the past: "openssl ca" takes explicit start and end dates.
    request("expired", "localhost");
    runCommand(cd + "openssl ca -batch -config openssl.cnf -cert ca.pem -keyfile ca.key -in expired.csr -out expired.pem "
                    "-startdate 20200101000000Z -enddate 20200102000000Z -extensions server_ext -notext");
    request("client", "talvex test client");
    sign("client", "ca", "client_ext", 4);
    request("other", "unrelated client");
    sign("other", "otherca", "client_ext", 5);
    std::ofstream(folder + "/complete") << "made by the vlt tests\n";
}

Certificates describe(const std::string& folder) {
    auto p = [&](const char* file) { return folder + "/" + file; };
    return Certificates{folder,           p("ca.pem"),     p("ca.key"),      p("server.pem"), p("server.key"),
                        p("self.pem"),    p("self.key"),   p("wrong.pem"),   p("wrong.key"),  p("expired.pem"),
                        p("expired.key"), p("client.pem"), p("client.key"),  p("other.pem"),  p("other.key")};
}

void blockSigpipe() {
    // The peers write through OpenSSL's plain socket BIO; a client that goes
    // away must not kill the test process from a peer thread.
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

std::string sslErrors() {
    std::string text;
    unsigned long e;
    while ((e = ERR_get_error()) != 0) {
        char buffer[256];
        ERR_error_string_n(e, buffer, sizeof buffer);
        if (!text.empty()) text += "; ";
        text += buffer;
    }
    return text.empty() ? "handshake failed" : text;
}

bool readExactly(SSL* ssl, std::size_t total, unsigned seed, std::size_t& got) {
    std::vector<char> buffer(64 * 1024);
    bool matched = true;
    got = 0;
    while (got < total) {
        std::size_t n = 0;
        if (SSL_read_ex(ssl, buffer.data(), std::min(buffer.size(), total - got), &n) != 1) return false;
        for (std::size_t i = 0; i < n; ++i)
            if (static_cast<unsigned char>(buffer[i]) != patternByte(got + i, seed)) matched = false;
        got += n;
    }
    return matched;
}

}  // namespace

void runCommand(const std::string& command) {
    std::string full = "(" + command + ") > /tmp/vlt-test-command.$$.log 2>&1; rc=$?; "
                       "if [ $rc -ne 0 ]; then cat /tmp/vlt-test-command.$$.log >&2; fi; "
                       "rm -f /tmp/vlt-test-command.$$.log; exit $rc";
    int rc = std::system(full.c_str());
    if (rc != 0) throw std::runtime_error("command failed: " + command);
}

const Certificates& certificates() {
    static const Certificates certs = [] {
        const std::string folder = certificateFolder();
        if (!fresh(folder)) {
            // One process makes them while the others wait on the lock.
            int lock = ::open((folder + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
            if (lock < 0 || ::flock(lock, LOCK_EX) != 0) throw std::runtime_error("cannot lock " + folder + ".lock");
            if (!fresh(folder)) {
                std::string building = folder + ".new." + std::to_string(::getpid());
                std::filesystem::remove_all(building);
                makeCertificates(building);
                std::filesystem::remove_all(folder);
                std::filesystem::rename(building, folder);
            }
            ::close(lock);  // also releases the lock
        }
        return describe(folder);
    }();
    return certs;
}

const std::string& scratchDir() {
    static ScratchFolder folder = [] {
        char name[] = "/tmp/vlt-test-XXXXXX";
        if (mkdtemp(name) == nullptr) throw std::runtime_error("mkdtemp failed");
        return ScratchFolder{name};
    }();
    return folder.path;
}

unsigned char patternByte(std::size_t index, unsigned seed) {
    std::size_t x = index * 2654435761u + seed;
    return static_cast<unsigned char>((x >> 7) ^ (index >> 13) ^ seed);
}

std::string pattern(std::size_t length, unsigned seed) {
    std::string data(length, '\0');
    for (std::size_t i = 0; i < length; ++i) data[i] = static_cast<char>(patternByte(i, seed));
    return data;
}

TlsPeer::TlsPeer(PeerOptions options) : options_(std::move(options)) {
    ctx_ = SSL_CTX_new(TLS_server_method());
    if (ctx_ == nullptr) throw std::runtime_error("SSL_CTX_new failed");
    if (SSL_CTX_use_certificate_chain_file(ctx_, options_.certificate.c_str()) != 1 ||
        SSL_CTX_use_PrivateKey_file(ctx_, options_.key.c_str(), SSL_FILETYPE_PEM) != 1)
        throw std::runtime_error("peer certificate: " + sslErrors());
    if (options_.minVersion != 0) SSL_CTX_set_min_proto_version(ctx_, options_.minVersion);
    if (options_.maxVersion != 0) SSL_CTX_set_max_proto_version(ctx_, options_.maxVersion);
    if (options_.requireClientCertificate) {
        SSL_CTX_load_verify_locations(ctx_, options_.clientCa.c_str(), nullptr);
        SSL_CTX_set_client_CA_list(ctx_, SSL_load_client_CA_file(options_.clientCa.c_str()));
        SSL_CTX_set_verify(ctx_, SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    }

    int family = options_.ipv6 ? AF_INET6 : AF_INET;
    listenFd_ = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_storage address{};
    socklen_t length;
    if (options_.ipv6) {
        auto* a6 = reinterpret_cast<sockaddr_in6*>(&address);
        a6->sin6_family = AF_INET6;
        a6->sin6_addr = in6addr_loopback;
        length = sizeof *a6;
    } else {
        auto* a4 = reinterpret_cast<sockaddr_in*>(&address);
        a4->sin_family = AF_INET;
        a4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        length = sizeof *a4;
    }
    if (listenFd_ < 0 || ::bind(listenFd_, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(listenFd_, 16) != 0) {
        if (listenFd_ >= 0) ::close(listenFd_);
        listenFd_ = -1;
        return;  // listening() tells the test
    }
    ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(options_.ipv6 ? reinterpret_cast<sockaddr_in6*>(&address)->sin6_port
                                : reinterpret_cast<sockaddr_in*>(&address)->sin_port);
    if (::pipe2(stopPipe_, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
    acceptor_ = std::thread([this] { acceptLoop(); });
}

TlsPeer::~TlsPeer() {
    if (stopPipe_[1] >= 0) {
        char stop = 1;
        (void)::write(stopPipe_[1], &stop, 1);
    }
    finish();
    if (listenFd_ >= 0) ::close(listenFd_);
    for (int fd : stopPipe_)
        if (fd >= 0) ::close(fd);
    SSL_CTX_free(ctx_);
}

void TlsPeer::finish() {
    if (finished_) return;
    finished_ = true;
    if (acceptor_.joinable()) acceptor_.join();
    for (std::thread& t : workers_) t.join();
}

void TlsPeer::acceptLoop() {
    blockSigpipe();
    for (int i = 0; i < options_.connections; ++i) {
        pollfd polls[2] = {{listenFd_, POLLIN, 0}, {stopPipe_[0], POLLIN, 0}};
        if (::poll(polls, 2, kPeerTimeoutSec * 1000) <= 0 || (polls[1].revents & POLLIN) != 0) return;
        int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) return;
        workers_.emplace_back([this, fd] { serve(fd); });
    }
}

void TlsPeer::serve(int fd) {
    blockSigpipe();
    timeval limit{kPeerTimeoutSec, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    SSL* ssl = SSL_new(ctx_);
    SSL_set_fd(ssl, fd);
    if (SSL_accept(ssl) != 1) {
        std::lock_guard<std::mutex> lock(mutex_);
        handshakeError_ = sslErrors();
        SSL_free(ssl);
        ::close(fd);
        return;
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        ++handshakes_;
        version_ = SSL_version(ssl);
        const char* sni = SSL_get_servername(ssl, TLSEXT_NAMETYPE_host_name);
        serverName_ = sni != nullptr ? sni : "";
        if (X509* cert = SSL_get1_peer_certificate(ssl)) {
            char subject[256];
            X509_NAME_oneline(X509_get_subject_name(cert), subject, sizeof subject);
            clientSubject_ = subject;
            X509_free(cert);
        }
    }
    bool clean = true;
    std::vector<char> buffer(64 * 1024);
    switch (options_.mode) {
    case PeerMode::Echo:
        for (;;) {
            std::size_t n = 0;
            if (SSL_read_ex(ssl, buffer.data(), buffer.size(), &n) != 1) break;
            {
                std::lock_guard<std::mutex> lock(mutex_);
                bytesReceived_ += n;
            }
            std::size_t written = 0;
            if (SSL_write_ex(ssl, buffer.data(), n, &written) != 1) break;
        }
        break;
    case PeerMode::SinkThenSource: {
        std::size_t got = 0;
        bool matched = readExactly(ssl, options_.sinkBytes, 1, got);
        {
            std::lock_guard<std::mutex> lock(mutex_);
            bytesReceived_ = got;
            uploadMatched_ = matched && got == options_.sinkBytes;
        }
        std::string data = pattern(options_.sourceBytes, 2);
        std::size_t written = 0;
        if (!data.empty() && SSL_write_ex(ssl, data.data(), data.size(), &written) != 1) clean = false;
        if (clean) SSL_shutdown(ssl);
        // Wait for the client to finish reading and close, so our close cannot
        // turn into a reset that discards data still on its way.
        while (clean && SSL_read_ex(ssl, buffer.data(), buffer.size(), &written) == 1) {
        }
        clean = false;
        break;
    }
    case PeerMode::Greeting: {
        std::this_thread::sleep_for(std::chrono::milliseconds(options_.greetingDelayMs));
        std::size_t written = 0;
        SSL_write_ex(ssl, "hello\n", 6, &written);
        SSL_shutdown(ssl);
        while (SSL_read_ex(ssl, buffer.data(), buffer.size(), &written) == 1) {
        }
        clean = false;
        break;
    }
    case PeerMode::AbruptClose: {
        std::string line;
        while (line.find('\n') == std::string::npos) {
            std::size_t n = 0;
            if (SSL_read_ex(ssl, buffer.data(), buffer.size(), &n) != 1) break;
            line.append(buffer.data(), n);
        }
        std::lock_guard<std::mutex> lock(mutex_);
        bytesReceived_ = line.size();
        clean = false;
        break;
    }
    case PeerMode::DropAtOnce:
        clean = false;
        break;
    }
    if (clean) SSL_shutdown(ssl);
    SSL_free(ssl);
    ::close(fd);
}

// The results under the lock, since the peer's threads write them.
#define PEER_RESULT(Type, name, member)          \
    Type TlsPeer::name() const {                 \
        std::lock_guard<std::mutex> lock(mutex_); \
        return member;                           \
    }
PEER_RESULT(std::string, handshakeError, handshakeError_)
PEER_RESULT(int, version, version_)
PEER_RESULT(std::string, serverName, serverName_)
PEER_RESULT(std::string, clientSubject, clientSubject_)
PEER_RESULT(bool, uploadMatched, uploadMatched_)
PEER_RESULT(std::size_t, bytesReceived, bytesReceived_)
PEER_RESULT(int, handshakes, handshakes_)
#undef PEER_RESULT

int freePort() {
    RefusingPort bound;
    return bound.port();  // free again once closed
}

OpensslServer::OpensslServer(const std::vector<std::string>& extraArguments) {
    port_ = freePort();
    std::vector<std::string> args = {"openssl", "s_server", "-accept", "127.0.0.1:" + std::to_string(port_), "-quiet"};
    args.insert(args.end(), extraArguments.begin(), extraArguments.end());
    std::string log = scratchDir() + "/s_server." + std::to_string(port_) + ".log";
    // Everything the child needs is prepared here: after fork() in a threaded
    // process it may only make plain system calls.
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    pid_ = ::fork();
    if (pid_ == 0) {
        int in = ::open("/dev/null", O_RDONLY);
        int out = ::open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(in, 0);
        ::dup2(out, 1);
        ::dup2(out, 2);
        ::execvp("openssl", argv.data());
        ::_exit(127);
    }
    // Ready once it accepts TCP connections; it serves the next one anyway.
    auto end = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (!ready_ && std::chrono::steady_clock::now() < end) {
        int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        a.sin_port = htons(static_cast<uint16_t>(port_));
        ready_ = ::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
        ::close(fd);
        if (!ready_) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
}

OpensslServer::~OpensslServer() {
    if (pid_ > 0) {
        ::kill(pid_, SIGTERM);
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }
}

RefusingPort::RefusingPort() {
    fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof a;
    ::bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a);
    ::getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &length);
    port_ = ntohs(a.sin_port);
}

RefusingPort::~RefusingPort() {
    if (fd_ >= 0) ::close(fd_);
}

}  // namespace vlttest
