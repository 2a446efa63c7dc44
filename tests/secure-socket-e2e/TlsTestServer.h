#ifndef TALVEX_TESTS_TLSTESTSERVER_H
#define TALVEX_TESTS_TLSTESTSERVER_H

// Certificates for TLS servers on loopback made directly on OpenSSL (the fault
// and thread tests), made by the openssl command the first time a test needs
// them. The secure socket's own tests use the security library's test peers.

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace securetest {

// A server certificate for localhost, 127.0.0.1 and ::1 that is its own CA,
// and an unrelated one a client does not trust.
struct TestCertificates {
    std::string dir;
    std::string certificate, key;
    std::string strangerCertificate, strangerKey;

    static const TestCertificates& get() {
        static TestCertificates made = make();
        return made;
    }

    ~TestCertificates() {
        if (!dir.empty()) std::system(("rm -rf '" + dir + "'").c_str());
    }

private:
    static void run(const std::string& command) {
        if (std::system((command + " >/dev/null 2>&1").c_str()) != 0)
            throw std::runtime_error("command failed: " + command);
    }

    static void makeOne(const std::string& cert, const std::string& key, const std::string& subject) {
        run("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2"
            " -keyout '" + key + "' -out '" + cert + "' -subj '/CN=" + subject + "'"
            " -addext 'subjectAltName=DNS:localhost,IP:127.0.0.1,IP:0:0:0:0:0:0:0:1'");
    }

    static TestCertificates make() {
        char pattern[] = "/tmp/talvex-secure-certs-XXXXXX";
        if (mkdtemp(pattern) == nullptr) throw std::runtime_error("mkdtemp");
        TestCertificates c;
        c.dir = pattern;
        c.certificate = c.dir + "/server.pem";
        c.key = c.dir + "/server.key";
        c.strangerCertificate = c.dir + "/stranger.pem";
        c.strangerKey = c.dir + "/stranger.key";
        makeOne(c.certificate, c.key, "localhost");
        makeOne(c.strangerCertificate, c.strangerKey, "stranger");
        return c;
    }
};

}  // namespace securetest

#endif
