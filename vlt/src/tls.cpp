// TLS on OpenSSL 3: contexts from the configuration, the handshake, reads,
// close_notify, and failure texts a person can act on.
#include "internal.h"

#include <openssl/err.h>
#include <openssl/x509v3.h>

#include <netinet/in.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace vlt {
namespace {

using CtxPtr = std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)>;

// Keys protected by a pass phrase are not supported; without this OpenSSL
// would prompt on the terminal of whatever process loaded us.
int noPassPhrase(char*, int, int, void*) { return 0; }

// Notes that the server asked for a certificate we do not have, so a later
// refusal can be explained as such.
int noteCertificateRequest(SSL* ssl, X509**, EVP_PKEY**) {
    if (auto* c = static_cast<Connection*>(SSL_get_app_data(ssl))) c->certificateRequested = true;
    return 0;
}

std::string timeText(const ASN1_TIME* t) {
    std::string text;
    BIO* mem = BIO_new(BIO_s_mem());
    if (mem == nullptr) return text;
    if (ASN1_TIME_print(mem, t) == 1) {
        char* data = nullptr;
        long n = BIO_get_mem_data(mem, &data);
        if (n > 0) text.assign(data, static_cast<std::size_t>(n));
    }
    BIO_free(mem);
    return text;
}

std::string subjectText(X509* cert) {
    std::string text;
    BIO* mem = BIO_new(BIO_s_mem());
    if (mem == nullptr) return text;
    if (X509_NAME_print_ex(mem, X509_get_subject_name(cert), 0, XN_FLAG_ONELINE) >= 0) {
        char* data = nullptr;
        long n = BIO_get_mem_data(mem, &data);
        if (n > 0) text.assign(data, static_cast<std::size_t>(n));
    }
    BIO_free(mem);
    return text;
}

// Keeps the subject and validity of the first certificate that failed, for the
// failure text; the decision itself stays OpenSSL's.
int verifyCallback(int ok, X509_STORE_CTX* store) {
    if (ok) return ok;
    SSL* ssl = static_cast<SSL*>(X509_STORE_CTX_get_ex_data(store, SSL_get_ex_data_X509_STORE_CTX_idx()));
    auto* c = ssl != nullptr ? static_cast<Connection*>(SSL_get_app_data(ssl)) : nullptr;
    X509* cert = X509_STORE_CTX_get_current_cert(store);
    if (c == nullptr || cert == nullptr || !c->verifyDetail.empty()) return ok;
    try {
        std::string detail = "certificate '" + subjectText(cert) + "'";
        int err = X509_STORE_CTX_get_error(store);
        if (err == X509_V_ERR_CERT_HAS_EXPIRED)
            detail += ", valid until " + timeText(X509_get0_notAfter(cert));
        else if (err == X509_V_ERR_CERT_NOT_YET_VALID)
            detail += ", valid from " + timeText(X509_get0_notBefore(cert));
        c->verifyDetail = detail;
    } catch (...) {
    }
    return ok;
}

std::string checkReadable(const char* what, const std::string& path) {
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return std::string(what) + " '" + path + "' cannot be read: " + systemErrorText(errno);
    std::fclose(f);
    return "";
}

// The system's trust store, loaded once: parsing the distribution's CA bundle
// costs far more than a handshake, and it does not change while we run.
X509_STORE* systemTrustStore() {
    static X509_STORE* store = [] {
        X509_STORE* s = X509_STORE_new();
        if (s != nullptr && X509_STORE_set_default_paths(s) != 1) {
            X509_STORE_free(s);
            s = nullptr;
        }
        return s;
    }();
    return store;
}

std::string loadTrust(SSL_CTX* ctx, const Config& cfg, bool systemDefault) {
    if (cfg.caFile.empty() && cfg.caPath.empty()) {
        if (!systemDefault) return "";
        X509_STORE* store = systemTrustStore();
        if (store == nullptr) return "the system trust store cannot be used: " + opensslErrors();
        SSL_CTX_set1_cert_store(ctx, store);
        return "";
    }
    if (!cfg.caFile.empty()) {
        std::string err = checkReadable("caFile", cfg.caFile);
        if (!err.empty()) return err;
    }
    if (!cfg.caPath.empty()) {
        struct stat st {};
        if (::stat(cfg.caPath.c_str(), &st) != 0) return "caPath '" + cfg.caPath + "' cannot be read: " + systemErrorText(errno);
        if (!S_ISDIR(st.st_mode)) return "caPath '" + cfg.caPath + "' is not a directory";
    }
    if (SSL_CTX_load_verify_locations(ctx, cfg.caFile.empty() ? nullptr : cfg.caFile.c_str(),
                                      cfg.caPath.empty() ? nullptr : cfg.caPath.c_str()) != 1) {
        std::string which = !cfg.caFile.empty() ? "caFile '" + cfg.caFile + "'" : "caPath '" + cfg.caPath + "'";
        return which + " holds no usable CA certificate: " + opensslErrors();
    }
    return "";
}

std::string loadKeyPair(SSL_CTX* ctx, const char* certWhat, const std::string& cert,
                        const char* keyWhat, const std::string& keyGiven) {
    std::string err = checkReadable(certWhat, cert);
    if (!err.empty()) return err;
    if (SSL_CTX_use_certificate_chain_file(ctx, cert.c_str()) != 1)
        return std::string(certWhat) + " '" + cert + "' holds no usable PEM certificate: " + opensslErrors();
    const std::string& key = keyGiven.empty() ? cert : keyGiven;
    err = checkReadable(keyWhat, key);
    if (!err.empty()) return err;
    if (SSL_CTX_use_PrivateKey_file(ctx, key.c_str(), SSL_FILETYPE_PEM) != 1) {
        if (ERR_GET_REASON(ERR_peek_last_error()) == X509_R_KEY_VALUES_MISMATCH) {
            ERR_clear_error();
            return std::string(keyWhat) + " '" + key + "' does not belong to " + certWhat + " '" + cert + "'";
        }
        std::string why = opensslErrors();
        if (keyGiven.empty())
            return std::string(certWhat) + " '" + cert + "' holds no usable private key; name the key file with " +
                   keyWhat + " (" + why + ")";
        return std::string(keyWhat) + " '" + key + "' holds no usable PEM private key (keys with a pass phrase are not supported): " + why;
    }
    if (SSL_CTX_check_private_key(ctx) != 1) {
        ERR_clear_error();
        return std::string(keyWhat) + " '" + key + "' does not belong to " + certWhat + " '" + cert + "'";
    }
    return "";
}

std::string commonSetup(SSL_CTX* ctx, const Config& cfg) {
    if (SSL_CTX_set_min_proto_version(ctx, cfg.minProtocol) != 1) return "cannot set minProtocol: " + opensslErrors();
    SSL_CTX_set_options(ctx, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION);
    SSL_CTX_set_mode(ctx, SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
    SSL_CTX_set_default_passwd_cb(ctx, noPassPhrase);
    if (!cfg.cipherList.empty() && SSL_CTX_set_cipher_list(ctx, cfg.cipherList.c_str()) != 1) {
        ERR_clear_error();
        return "cipherList '" + cfg.cipherList + "' selects no usable cipher";
    }
    return "";
}

SSL_CTX* makeClientContext(const Config& cfg, std::string& error) {
    CtxPtr ctx(SSL_CTX_new(TLS_client_method()), SSL_CTX_free);
    if (!ctx) {
        error = "cannot create a TLS context: " + opensslErrors();
        return nullptr;
    }
    error = commonSetup(ctx.get(), cfg);
    if (error.empty()) error = loadTrust(ctx.get(), cfg, cfg.verifyPeer);
    if (error.empty() && !cfg.clientCertificate.empty())
        error = loadKeyPair(ctx.get(), "clientCertificate", cfg.clientCertificate, "clientKey", cfg.clientKey);
    if (!error.empty()) return nullptr;
    SSL_CTX_set_verify(ctx.get(), cfg.verifyPeer ? SSL_VERIFY_PEER : SSL_VERIFY_NONE, verifyCallback);
    SSL_CTX_set_client_cert_cb(ctx.get(), noteCertificateRequest);
    return ctx.release();
}

SSL_CTX* makeServerContext(const Config& cfg, std::string& error) {
    CtxPtr ctx(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    if (!ctx) {
        error = "cannot create a TLS context: " + opensslErrors();
        return nullptr;
    }
    error = commonSetup(ctx.get(), cfg);
    if (error.empty())
        error = loadKeyPair(ctx.get(), "serverCertificate", cfg.serverCertificate, "serverKey", cfg.serverKey);
    if (error.empty() && cfg.requireClientCertificate) {
        if (cfg.caFile.empty() && cfg.caPath.empty())
            error = "requireClientCertificate needs caFile or caPath to check client certificates against";
        else
            error = loadTrust(ctx.get(), cfg, false);
        if (error.empty() && !cfg.caFile.empty()) {
            // Tells clients which issuers we accept, so they can pick a certificate.
            STACK_OF(X509_NAME)* names = SSL_load_client_CA_file(cfg.caFile.c_str());
            if (names != nullptr) SSL_CTX_set_client_CA_list(ctx.get(), names);
            ERR_clear_error();
        }
    }
    if (!error.empty()) return nullptr;
    static const unsigned char kSessionContext[] = "talvex";
    SSL_CTX_set_session_id_context(ctx.get(), kSessionContext, sizeof kSessionContext - 1);
    SSL_CTX_set_verify(ctx.get(),
                       cfg.requireClientCertificate ? SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT : SSL_VERIFY_NONE,
                       verifyCallback);
    return ctx.release();
}

// "sslv3 alert handshake failure" → "handshake failure".
std::string alertName(const std::string& reason) {
    std::size_t at = reason.find("alert ");
    return at == std::string::npos ? reason : reason.substr(at + 6);
}

bool contains(const std::vector<int>& reasons, int r) {
    return std::find(reasons.begin(), reasons.end(), r) != reasons.end();
}

bool isCertificateAlert(int r) {
    switch (r) {
    case SSL_R_SSLV3_ALERT_HANDSHAKE_FAILURE:
    case SSL_R_TLSV13_ALERT_CERTIFICATE_REQUIRED:
    case SSL_R_SSLV3_ALERT_BAD_CERTIFICATE:
    case SSL_R_SSLV3_ALERT_UNSUPPORTED_CERTIFICATE:
    case SSL_R_SSLV3_ALERT_CERTIFICATE_REVOKED:
    case SSL_R_SSLV3_ALERT_CERTIFICATE_EXPIRED:
    case SSL_R_SSLV3_ALERT_CERTIFICATE_UNKNOWN:
    case SSL_R_TLSV1_ALERT_UNKNOWN_CA:
    case SSL_R_TLSV1_ALERT_ACCESS_DENIED:
    case SSL_R_TLSV1_ALERT_DECRYPT_ERROR:
        return true;
    default:
        return false;
    }
}

std::string verifyText(const Connection& c, long result) {
    const char* peer = c.role == Role::Server ? "client" : "server";
    if (result == X509_V_ERR_HOSTNAME_MISMATCH) return "certificate does not match host '" + c.peerName + "'";
    if (result == X509_V_ERR_IP_ADDRESS_MISMATCH) return "certificate does not match address '" + c.peerName + "'";
    std::string text = std::string(c.role == Role::Server ? "client " : "") + "certificate verify failed: " +
                       X509_verify_cert_error_string(result);
    if (!c.verifyDetail.empty()) text += " (" + c.verifyDetail + ")";
    switch (result) {
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
        text += std::string("; the ") + peer + "'s issuer is not trusted here (see caFile and caPath)";
        break;
    default:
        break;
    }
    return text;
}

// Decides the status code, the text and the connection's state after a failed
// TLS call; the error queue and SSL_get_error are read before anything else runs.
int classify(Connection& c, int sslResult, bool duringHandshake) {
    int sslError = SSL_get_error(c.ssl, sslResult);
    std::vector<int> reasons;
    std::vector<std::string> texts;
    std::string firstReason;
    unsigned long e;
    while ((e = ERR_get_error()) != 0) {
        const char* text = ERR_reason_error_string(e);
        if (ERR_GET_LIB(e) == ERR_LIB_SSL) {
            reasons.push_back(ERR_GET_REASON(e));
            texts.emplace_back(text != nullptr ? text : "");
        }
        if (firstReason.empty() && text != nullptr) firstReason = text;
    }
    ERR_clear_error();
    const bool client = c.role != Role::Server;
    const char* peer = client ? "server" : "client";
    const int sysErr = c.io.lastErrno;
    const std::string during = duringHandshake ? "during the TLS handshake" : "";
    // A client's handshake refused for a reason its next attempt would meet
    // again (a certificate, no TLS, nothing in common) answers VLT_E_REFUSED,
    // so that the caller does not try again.
    const bool refusedForGood = client && duringHandshake;

    long verify = SSL_get_verify_result(c.ssl);
    if (contains(reasons, SSL_R_CERTIFICATE_VERIFY_FAILED) && verify != X509_V_OK)
        return failFatal(c, refusedForGood ? VLT_E_REFUSED : VLT_E_VERIFY, verifyText(c, verify));

    if (!client && contains(reasons, SSL_R_PEER_DID_NOT_RETURN_A_CERTIFICATE))
        return failFatal(c, VLT_E_HANDSHAKE, "the client sent no certificate, and this server requires one");

    int alert = 0;
    std::string name;
    for (std::size_t i = 0; i < reasons.size(); ++i)
        if (isCertificateAlert(reasons[i])) {
            alert = reasons[i];
            name = alertName(texts[i]);
        }
    const int certificateRefused = refusedForGood ? VLT_E_REFUSED : VLT_E_HANDSHAKE;
    if (client && alert != 0) {
        if (c.config.clientCertificate.empty() && c.certificateRequested)
            return failFatal(c, certificateRefused, "the server requires a client certificate (" + name + ")");
        if (!c.config.clientCertificate.empty() && alert != SSL_R_SSLV3_ALERT_HANDSHAKE_FAILURE)
            return failFatal(c, certificateRefused, "the server did not accept the client certificate '" +
                                                        c.config.clientCertificate + "' (" + name + ")");
    }

    bool unexpectedEof = contains(reasons, SSL_R_UNEXPECTED_EOF_WHILE_READING) ||
                         (sslError == SSL_ERROR_SYSCALL && (sysErr == 0 || sysErr == ECONNRESET || sysErr == EPIPE));
    if (unexpectedEof) {
        std::string how = sysErr == ECONNRESET ? "reset the connection" : "closed the connection";
        if (duringHandshake) return failFatal(c, VLT_E_HANDSHAKE, std::string("the ") + peer + " " + how + " " + during);
        c.state = State::Broken;
        return fail(c, VLT_E_CONNECTION_CLOSED, std::string("the ") + peer + " " + how + " without a TLS close alert");
    }

    if (sslError == SSL_ERROR_SYSCALL) {
        if (sysErr == ETIMEDOUT && duringHandshake) {
            const std::string limit = c.connectLimitMs > 0 ? std::string("the connect time limit")
                                                           : std::to_string(kHandshakeTimeoutMs / 1000) + " seconds";
            return failFatal(c, VLT_E_HANDSHAKE,
                             std::string("the ") + peer + " did not complete the TLS handshake within " + limit);
        }
        std::string text = "socket error " + (during.empty() ? std::string("on the connection") : during) + ": " +
                           systemErrorText(sysErr);
        return failFatal(c, duringHandshake ? VLT_E_HANDSHAKE : VLT_E_SOCKET, text);
    }

    std::string text = duringHandshake ? "TLS handshake failed" : "TLS error";
    text += ": " + (firstReason.empty() ? std::string("unknown error ") + std::to_string(sslError) : firstReason);
    const bool notTls = contains(reasons, SSL_R_WRONG_VERSION_NUMBER) || contains(reasons, SSL_R_PACKET_LENGTH_TOO_LONG);
    const bool noVersion = contains(reasons, SSL_R_UNSUPPORTED_PROTOCOL) ||
                           contains(reasons, SSL_R_TLSV1_ALERT_PROTOCOL_VERSION) ||
                           contains(reasons, SSL_R_NO_PROTOCOLS_AVAILABLE);
    if (notTls)
        text += std::string(" (does the ") + peer + " speak TLS on this port?)";
    else if (noVersion)
        text += std::string(" (the ") + peer + " offers no TLS version at or above minProtocol " +
                (c.config.minProtocol == TLS1_3_VERSION ? "TLS1.3" : "TLS1.2") + ")";
    if (!duringHandshake) return failFatal(c, VLT_E_FAILED, text);
    const bool nothingInCommon = notTls || noVersion || contains(reasons, SSL_R_SSLV3_ALERT_HANDSHAKE_FAILURE) ||
                                 contains(reasons, SSL_R_NO_SHARED_CIPHER);
    return failFatal(c, refusedForGood && nothingInCommon ? VLT_E_REFUSED : VLT_E_HANDSHAKE, text);
}

// A TLS 1.3 server judges the (empty) certificate of its client only after the
// client has finished its handshake, so a refusal arrives as the first record.
// When the server asked for a certificate we did not have, wait a moment for
// that verdict, so the refusal is reported here and not at the first read.
int awaitCertificateVerdict(Connection& c) {
    if (c.role != Role::Client || !c.certificateRequested || !c.config.clientCertificate.empty() ||
        SSL_version(c.ssl) != TLS1_3_VERSION)
        return VLT_S_OK;
    constexpr int kVerdictWaitMs = 300;
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(kVerdictWaitMs);
    bool nonBlocking = c.io.nonBlocking;
    c.io.nonBlocking = true;
    int rc = VLT_S_OK;
    for (;;) {
        if (c.io.pendingOut() > 0 && flushOut(c.io, 0) < 0) break;
        auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
        if (left <= 0 || waitFd(c.io.fd, POLLIN, static_cast<int>(left)) <= 0) break;
        char probe;
        std::size_t n = 0;
        ERR_clear_error();
        int r = SSL_peek_ex(c.ssl, &probe, 1, &n);
        if (r == 1) break;
        int e = SSL_get_error(c.ssl, r);
        if (e == SSL_ERROR_WANT_READ || e == SSL_ERROR_WANT_WRITE) continue;
        if (e == SSL_ERROR_ZERO_RETURN) break;  // a clean close is for the reader to see
        rc = classify(c, r, true);
        break;
    }
    ERR_clear_error();
    c.io.nonBlocking = nonBlocking;
    return rc;
}

}  // namespace

int buildContexts(Connection& c, std::string& error) {
    c.clientCtx = makeClientContext(c.config, error);
    if (c.clientCtx == nullptr) return VLT_E_CONFIG;
    if (!c.config.serverCertificate.empty()) {
        c.serverCtx = makeServerContext(c.config, error);
        if (c.serverCtx == nullptr) return VLT_E_CONFIG;
    }
    return VLT_S_OK;
}

int startTls(Connection& c) {
    SSL_CTX* ctx = c.role == Role::Server ? c.serverCtx : c.clientCtx;
    SSL* ssl = ctx != nullptr ? SSL_new(ctx) : nullptr;
    if (ssl == nullptr) return failFatal(c, VLT_E_NO_MEMORY, "cannot create a TLS connection: " + opensslErrors());
    BIO* bio = newSocketBio(&c.io);
    if (bio == nullptr) {
        SSL_free(ssl);
        return failFatal(c, VLT_E_NO_MEMORY, "cannot create the socket BIO: " + opensslErrors());
    }
    SSL_set_bio(ssl, bio, bio);
    SSL_set_app_data(ssl, &c);
    SSL_set_read_ahead(ssl, 1);
    c.ssl = ssl;
    if (c.role == Role::Server) {
        SSL_set_accept_state(ssl);
        return VLT_S_OK;
    }
    SSL_set_connect_state(ssl);
    if (c.peerName.empty()) return VLT_S_OK;
    if (isIpLiteral(c.peerName)) {
        // An address is checked against the certificate's IP entries, and is
        // never sent as SNI, which only carries names.
        std::string ip = c.peerName.substr(0, c.peerName.find('%'));
        if (X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), ip.c_str()) != 1)
            return failFatal(c, VLT_E_FAILED, "cannot check the certificate against address '" + ip + "'");
        return VLT_S_OK;
    }
    std::string name = c.peerName;
    if (name.size() > 1 && name.back() == '.') name.pop_back();  // "example.org." names the same host
    if (SSL_set_tlsext_host_name(ssl, name.c_str()) != 1 || SSL_set1_host(ssl, name.c_str()) != 1)
        return failFatal(c, VLT_E_FAILED, "cannot check the certificate against host '" + name + "': " + opensslErrors());
    SSL_set_hostflags(ssl, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
    return VLT_S_OK;
}

int handshake(Connection& c) {
    ERR_clear_error();
    c.io.lastErrno = 0;
    if (!c.io.nonBlocking) c.io.setDeadline(c.connectWaitMs(kHandshakeTimeoutMs));
    int r = SSL_do_handshake(c.ssl);
    c.io.clearDeadline();
    if (r != 1) {
        int e = SSL_get_error(c.ssl, r);
        if (e == SSL_ERROR_WANT_READ || e == SSL_ERROR_WANT_WRITE) {
            ERR_clear_error();
            return VLT_E_WOULD_BLOCK;
        }
        return classify(c, r, true);
    }
    int rc = awaitCertificateVerdict(c);
    if (rc != VLT_S_OK) return rc;
    c.state = State::Secure;
    return VLT_S_OK;
}

int readSome(Connection& c, char* buffer, std::size_t length, std::size_t* got, bool peek) {
    *got = 0;
    switch (c.state) {
    case State::Secure:
        break;
    case State::PeerClosed:
        return VLT_S_OK;  // the end stays the end
    case State::Broken:
        return VLT_E_CONNECTION_CLOSED;
    case State::Failed:
        return c.failCode;
    case State::TcpConnected:
        return fail(c, VLT_E_INVALID_ARGUMENT, "the TLS handshake is not done: call VLT_EstablishSecure first");
    default:
        return fail(c, VLT_E_INVALID_ARGUMENT, "the handle is not connected");
    }
    clearTlsErrors();
    c.io.lastErrno = 0;
    int r = peek ? SSL_peek_ex(c.ssl, buffer, length, got) : SSL_read_ex(c.ssl, buffer, length, got);
    if (r == 1) return VLT_S_OK;
    *got = 0;
    int e = SSL_get_error(c.ssl, r);
    if (e == SSL_ERROR_ZERO_RETURN) {
        ERR_clear_error();
        c.state = State::PeerClosed;
        return VLT_S_OK;
    }
    if (e == SSL_ERROR_WANT_READ || e == SSL_ERROR_WANT_WRITE) {
        ERR_clear_error();
        return VLT_E_WOULD_BLOCK;
    }
    return classify(c, r, false);
}

int tlsFailure(Connection& c, int sslResult, bool duringHandshake) { return classify(c, sslResult, duringHandshake); }

int socketFailure(Connection& c, int err, const char* during) {
    if (err == EPIPE || err == ECONNRESET) {
        c.state = State::Broken;
        return fail(c, VLT_E_CONNECTION_CLOSED,
                    std::string("the peer closed the connection ") + during + " (" + systemErrorText(err) + ")");
    }
    return failFatal(c, VLT_E_SOCKET, std::string("socket error ") + during + ": " + systemErrorText(err));
}

void sendCloseNotify(Connection& c) {
    if (c.ssl == nullptr || (c.state != State::Secure && c.state != State::PeerClosed)) return;
    // Bounded: a peer that stopped reading must not hold up a close.
    bool nonBlocking = c.io.nonBlocking;
    c.io.nonBlocking = false;
    c.io.setDeadline(kCloseNotifyTimeoutMs);
    ERR_clear_error();
    SSL_shutdown(c.ssl);
    if (c.io.pendingOut() > 0) flushOut(c.io, c.io.blockingWait());
    ERR_clear_error();
    c.io.clearDeadline();
    c.io.nonBlocking = nonBlocking;
}

}  // namespace vlt
