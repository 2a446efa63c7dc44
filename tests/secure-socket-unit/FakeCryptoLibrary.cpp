// A stand-in security library with all 55 entry points (or all but
// "AS_DecryptText" when built with FAKE_WITHOUT_AS_DECRYPT). It answers with
// results a test queues up, records every connection call, and counts the
// detail texts it hands out and gets back. Tests steer it through the fake_*
// functions, which they find with dlsym in the copy the toolkit loaded.
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#define FAKE_API extern "C" __attribute__((visibility("default")))

namespace {
typedef unsigned int Handle;
struct FdSet {
    unsigned int fd_count;
    Handle fd_array[64];
};
struct TimeVal {
    long tv_sec;
    long tv_usec;
};

struct Chunk {
    int rc;
    std::string data;
};
struct SendStep {
    int rc;
    int take;  // -1: everything offered
};

// Everything fake_reset puts back.
struct Fields {
    std::vector<std::string> log;
    std::map<std::string, std::deque<int>> results;
    std::deque<Chunk> received;
    std::deque<SendStep> sends;
    std::string sent;
    std::map<unsigned, int> options{{0x1001, 65536}, {0x1002, 16384}};
    int selectDefault = 1;
    int uriFamily = AF_INET;
    Handle nextHandle = 7;
    std::string lastConfig;
    std::string lastUrl;
    sockaddr_storage lastTarget{};
    int allocs = 0;
    int frees = 0;
    std::string text;  // what fake_log and fake_last_* hand out
};

struct State : Fields {
    std::mutex lock;
};

State& state() {
    static State s;
    return s;
}

// Every entry point works on the shared state under its lock.
#define LOCKED_STATE \
    State& s = state(); \
    std::lock_guard<std::mutex> g(s.lock)

// The next queued result of an entry point, or the given default.
int next(State& s, const std::string& name, int otherwise) {
    auto it = s.results.find(name);
    if (it == s.results.end() || it->second.empty()) return otherwise;
    int rc = it->second.front();
    it->second.pop_front();
    return rc;
}

char* detailText(State& s, const std::string& text) {
    ++s.allocs;
    char* p = static_cast<char*>(std::malloc(text.size() + 1));
    std::memcpy(p, text.c_str(), text.size() + 1);
    return p;
}

void fillAddress(int family, int port, sockaddr_storage* out) {
    if (family == 0xFFFF) {
        std::memset(out, 0xFF, sizeof *out);
        return;
    }
    std::memset(out, 0, sizeof *out);
    if (family == AF_INET6) {
        auto* a = reinterpret_cast<sockaddr_in6*>(out);
        a->sin6_family = AF_INET6;
        a->sin6_addr = in6addr_loopback;
        a->sin6_port = htons(static_cast<unsigned short>(port));
    } else {
        auto* a = reinterpret_cast<sockaddr_in*>(out);
        a->sin_family = static_cast<sa_family_t>(family);
        a->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        a->sin_port = htons(static_cast<unsigned short>(port));
    }
}

// For entry points that hand out no detail text.
int noDetail(char** detail, int rc) {
    if (detail) *detail = nullptr;
    return rc;
}

struct Resolution {
    int family;
};
}  // namespace

// --- steering -----------------------------------------------------------------

FAKE_API void fake_reset() { LOCKED_STATE; static_cast<Fields&>(s) = Fields(); }

FAKE_API void fake_clear_log() { LOCKED_STATE; s.log.clear(); }

// Queues the result of the next call of an entry point ("VLT_Connect", ...).
FAKE_API void fake_push_result(const char* entry, int rc) { LOCKED_STATE; s.results[entry].push_back(rc); }

// Queues what the next VLT_Recv delivers; bytes beyond the length asked for
// stay for the following call.
FAKE_API void fake_push_recv(int rc, const char* data, int length) {
    LOCKED_STATE;
    s.received.push_back(Chunk{rc, std::string(data != nullptr ? data : "", static_cast<size_t>(length))});
}

// Queues the next VLT_Send's result and how many bytes it takes (-1: all).
FAKE_API void fake_push_send(int rc, int take) { LOCKED_STATE; s.sends.push_back(SendStep{rc, take}); }

FAKE_API void fake_set_option(unsigned option, int value) { LOCKED_STATE; s.options[option] = value; }

// What VLT_Select answers once its queue is empty (1: ready).
FAKE_API void fake_set_select_default(int rc) { LOCKED_STATE; s.selectDefault = rc; }

// The family of every resolved address: AF_INET, AF_INET6 or 0xFFFF (none).
FAKE_API void fake_set_uri_family(int family) { LOCKED_STATE; s.uriFamily = family; }

// One line per call, such as "VLT_Recv 16384" or "VLT_Select r 3".
FAKE_API const char* fake_log() {
    LOCKED_STATE;
    s.text.clear();
    for (const auto& line : s.log) s.text += line + "\n";
    return s.text.c_str();
}

FAKE_API int fake_count(const char* entry) {
    LOCKED_STATE;
    const std::string name(entry);
    return static_cast<int>(std::count_if(s.log.begin(), s.log.end(), [&](const std::string& line) {
        return line == name || line.compare(0, name.size() + 1, name + " ") == 0;
    }));
}

FAKE_API const char* fake_last_config() {
    LOCKED_STATE;
    s.text = s.lastConfig;
    return s.text.c_str();
}

FAKE_API const char* fake_last_url() {
    LOCKED_STATE;
    s.text = s.lastUrl;
    return s.text.c_str();
}

FAKE_API void fake_last_target(sockaddr_storage* out) { LOCKED_STATE; std::memcpy(out, &s.lastTarget, sizeof *out); }

// Every byte the library took in VLT_Send calls.
FAKE_API const char* fake_sent(int* length) {
    LOCKED_STATE;
    s.text = s.sent;
    *length = static_cast<int>(s.text.size());
    return s.text.data();
}

FAKE_API int fake_detail_allocs() { LOCKED_STATE; return s.allocs; }

FAKE_API int fake_detail_frees() { LOCKED_STATE; return s.frees; }

// --- library ------------------------------------------------------------------

FAKE_API int VLT_CryptoInitialize(int, void*, char** detail) { return noDetail(detail, 0); }

FAKE_API int VLT_CryptoTerminate(int, void*, char** detail) { return noDetail(detail, 0); }

FAKE_API int VLT_CryptoFree(void* text, int) {
    LOCKED_STATE;
    if (text != nullptr) {
        ++s.frees;
        std::free(text);
    }
    return 0;
}

FAKE_API int VLT_CryptoGetLastErrorDetails(Handle handle, int, char** detail) {
    LOCKED_STATE;
    s.log.push_back("VLT_CryptoGetLastErrorDetails " + std::to_string(handle));
    *detail = detailText(s, "details of handle " + std::to_string(handle));
    return 0;
}

// --- connections ----------------------------------------------------------------

FAKE_API int VLT_Socket(Handle* handle, const char* config, int, char** detail) {
    LOCKED_STATE;
    s.log.push_back("VLT_Socket");
    s.lastConfig = config != nullptr ? config : "(null)";
    int rc = next(s, "VLT_Socket", 0);
    if (rc != 0) {
        *detail = detailText(s, "socket refused by the fake");
        return rc;
    }
    *handle = s.nextHandle++;
    *detail = nullptr;
    return 0;
}

FAKE_API int VLT_Bind(Handle, const sockaddr_storage*, int, int) { return -50; }
FAKE_API int VLT_Bind_Url(Handle, const char*, int) { return -50; }
FAKE_API int VLT_Listen(Handle, int, int) { return -50; }
FAKE_API int VLT_Accept(Handle, Handle*, sockaddr_storage*, int*, int) { return -50; }

FAKE_API int VLT_Connect(Handle handle, const sockaddr_storage* address, int length, int) {
    LOCKED_STATE;
    s.log.push_back("VLT_Connect " + std::to_string(handle) + " " + std::to_string(length));
    std::memcpy(&s.lastTarget, address, sizeof s.lastTarget);
    return next(s, "VLT_Connect", 0);
}

FAKE_API int VLT_Connect_Url(Handle handle, const char* url, int) {
    LOCKED_STATE;
    s.log.push_back("VLT_Connect_Url " + std::to_string(handle) + " " + url);
    s.lastUrl = url;
    return next(s, "VLT_Connect_Url", next(s, "VLT_Connect", 0));
}

FAKE_API int VLT_EstablishSecure(Handle handle, int) {
    LOCKED_STATE;
    s.log.push_back("VLT_EstablishSecure " + std::to_string(handle));
    return next(s, "VLT_EstablishSecure", 0);
}

FAKE_API int VLT_GetSockName(Handle, sockaddr_storage*, int*, int) { return -50; }
FAKE_API int VLT_GetPeerName(Handle, sockaddr_storage*, int*, int) { return -50; }

FAKE_API int VLT_GetSockOpt(Handle, unsigned int option, void* value, int* length, int) {
    LOCKED_STATE;
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%x", option);
    s.log.push_back(std::string("VLT_GetSockOpt ") + hex + " " + std::to_string(*length));
    int rc = next(s, "VLT_GetSockOpt", 0);
    if (rc == 0) *static_cast<int*>(value) = s.options[option];
    return rc;
}

FAKE_API int VLT_SetSockOpt(Handle, unsigned int option, const void* value, int length, int) {
    LOCKED_STATE;
    char text[48];
    std::snprintf(text, sizeof text, "0x%x %d %d", option, *static_cast<const int*>(value), length);
    s.log.push_back(std::string("VLT_SetSockOpt ") + text);
    return next(s, "VLT_SetSockOpt", 0);
}

FAKE_API int VLT_Send(Handle, const char* buffer, int length, int, int* sent, int) {
    LOCKED_STATE;
    s.log.push_back(std::string("VLT_Send ") + (buffer == nullptr ? "null " : "") + std::to_string(length));
    SendStep step{0, -1};
    if (!s.sends.empty()) {
        step = s.sends.front();
        s.sends.pop_front();
    }
    int taken = step.take < 0 ? length : std::min(step.take, length);
    if (buffer != nullptr && taken > 0) s.sent.append(buffer, static_cast<size_t>(taken));
    *sent = taken;
    return step.rc;
}

FAKE_API int VLT_Recv(Handle, char* buffer, int length, int, int* received, int) {
    LOCKED_STATE;
    s.log.push_back("VLT_Recv " + std::to_string(length));
    *received = 0;
    if (s.received.empty()) return 0;
    Chunk& c = s.received.front();
    int rc = c.rc;
    int n = std::min(length, static_cast<int>(c.data.size()));
    std::memcpy(buffer, c.data.data(), static_cast<size_t>(n));
    *received = n;
    c.data.erase(0, static_cast<size_t>(n));
    if (c.data.empty()) s.received.pop_front();
    return rc;
}

FAKE_API int VLT_SocketSecurityOp(Handle, int, void*, int) { return -50; }

FAKE_API int VLT_Select(FdSet* readSet, FdSet* writeSet, FdSet* errorSet, const TimeVal* timeout, int* ready, int,
                        char** detail) {
    int rc;
    {
        State& s = state();
        std::lock_guard<std::mutex> g(s.lock);
        const char* which = writeSet->fd_count == 1 ? "w" : readSet->fd_count == 1 ? "r" : "-";
        s.log.push_back(std::string("VLT_Select ") + which + " " + std::to_string(timeout->tv_sec));
        rc = next(s, "VLT_Select", s.selectDefault);
        *detail = nullptr;
    }
    if (rc >= 1 && rc != 2) {
        *ready = 1;
        return rc;
    }
    readSet->fd_count = 0;
    writeSet->fd_count = 0;
    errorSet->fd_count = 0;
    *ready = 0;
    // A span that passes takes a little time, so waiting loops do not spin.
    if (rc == -54 || rc == 2) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return rc;
}

FAKE_API int VLT_Poll(void*, int, int, int, char** detail) { return noDetail(detail, -50); }

FAKE_API int VLT_SocketStatus(Handle, int*) { return -50; }

FAKE_API int VLT_CloseHandle(Handle* handle, int, char** detail) {
    LOCKED_STATE;
    s.log.push_back("VLT_CloseHandle " + std::to_string(*handle));
    int rc = next(s, "VLT_CloseHandle", 0);
    if (detail != nullptr) *detail = rc != 0 ? detailText(s, "close refused by the fake") : nullptr;
    *handle = 0;
    return rc;
}

// --- services the toolkit does not use ---------------------------------------------

FAKE_API int VLT_PersistentInitialize(const char*, int, void*, char** detail) { return noDetail(detail, -50); }
FAKE_API int VLT_SetInfo(int, const void*, int) { return -50; }
FAKE_API int VLT_ProtectData(const void*, int, void*, int*, int, int) { return -50; }
FAKE_API int VLT_UnprotectData(const void*, int, void*, int*, int, int) { return -50; }
FAKE_API int VLT_GetInfo(int, void*, int*, int) { return -50; }
FAKE_API int VLT_ImpUsrInitialize(void**, int, void*, char** detail) { return noDetail(detail, -50); }
FAKE_API int VLT_ImpUsrNegotiate(void*, const void*, int, void*) { return -50; }
FAKE_API int VLT_ImpUsrImpersonate(void*, int) { return -50; }
FAKE_API int VLT_ImpUsrRevert(void*, int) { return -50; }
FAKE_API int VLT_ImpUsrSerializeHandle(void*, void*, int*) { return -50; }
FAKE_API int VLT_ImpUsrDeserializeHandle(const void*, int, void**, int) { return -50; }
FAKE_API int VLT_GetRandomData(void*, int, int) { return -50; }
FAKE_API int VLT_EncryptCredential(const char*, const char*, const char*, int, void*, int*, int, void*) { return -50; }
FAKE_API int VLT_DecryptCredential(const void*, int, char*, char*, char*, int, int) { return -50; }
FAKE_API int VLT_CMDRT_DecryptPassport(const void*, int, void*, int*, int) { return -50; }
FAKE_API int AS_EncryptText(const char*, int, char*, int*, int, int) { return -50; }
#ifndef FAKE_WITHOUT_AS_DECRYPT
FAKE_API int AS_DecryptText(const char*, int, char*, int*, int, int) { return -50; }
#endif
FAKE_API int VLT_GenerateUserSessionID(const char*, char*, int*, int) { return -50; }
FAKE_API int VLT_VerifyUserSessionID(const char*, const char*, int, int*, int) { return -50; }
FAKE_API int VLT_VerifyUserSessionIDBinary(const void*, int, int, int*, int) { return -50; }
FAKE_API int VLT_UpdateUserSessionID(const char*, const char*, char*, int*, int, int) { return -50; }
FAKE_API int VLT_VerifyAuthenticityToken(const char*, const char*, int, int*, int) { return -50; }
FAKE_API int VLT_VerifyAuthenticityTokenBinary(const void*, int, int, int*, int) { return -50; }
FAKE_API int VLT_CreateCapabilityTrustToken(const char*, char*, int*, int, int) { return -50; }
FAKE_API int VLT_VerifyCapabilityTrustToken(const char*, const char*, int, int*, int) { return -50; }

// --- addresses --------------------------------------------------------------------

FAKE_API int VLT_ResolveAddress(void** resolution, const char*, int, int, int* status) {
    LOCKED_STATE;
    *resolution = new Resolution{s.uriFamily};
    if (status) *status = 0;
    return 0;
}

FAKE_API int VLT_ResolveAddressFromURI(void** resolution, const char* uri, int, int* status) {
    LOCKED_STATE;
    s.log.push_back(std::string("VLT_ResolveAddressFromURI ") + uri);
    *resolution = new Resolution{s.uriFamily};
    if (status) *status = 0;
    return 0;
}

FAKE_API int VLT_GetAddress(void* resolution, int, sockaddr_storage* address) {
    fillAddress(static_cast<Resolution*>(resolution)->family, 443, address);
    return 0;
}

FAKE_API int VLT_GetAddressAsText(const sockaddr_storage* address, char* text, int size) {
    const char* t = address->ss_family == AF_INET    ? "127.0.0.1"
                    : address->ss_family == AF_INET6 ? "::1"
                                                     : "unprintable";
    if (size > static_cast<int>(std::strlen(t))) std::strcpy(text, t);
    return 0;
}

FAKE_API int VLT_ResolveAddressFree(void* resolution) {
    delete static_cast<Resolution*>(resolution);
    return 0;
}

// --- checks -------------------------------------------------------------------------

FAKE_API int VLT_IsSafeURL(const char*, int) { return -50; }
FAKE_API int VLT_VerifyFileSignature(const char*, int) { return -50; }
