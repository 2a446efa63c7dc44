#ifndef TALVEX_TESTS_FAKECRYPTO_H
#define TALVEX_TESTS_FAKECRYPTO_H

// Steers the stand-in security library that sits beside the test program and
// that the toolkit loaded: queued results, the call log and the counts of
// detail texts handed out and given back.

#include <dlfcn.h>
#include <sys/socket.h>
#include <unistd.h>

#include <climits>
#include <stdexcept>
#include <string>

#include "transport/MOXCrypto.h"

class FakeCrypto {
public:
    FakeCrypto() {
        MOXCrypto load("VLT_Crypto_Interface");  // the toolkit's own copy is the one to steer
        if (!load.isLoaded()) throw std::runtime_error("the stand-in library is not loaded");
        m_module = dlopen(besideProgram().c_str(), RTLD_NOW | RTLD_NOLOAD);
        if (m_module == nullptr) throw std::runtime_error("the stand-in library is not the one loaded");
        reset = get<void (*)()>("fake_reset");
        clearLog = get<void (*)()>("fake_clear_log");
        pushResult = get<void (*)(const char*, int)>("fake_push_result");
        pushRecv = get<void (*)(int, const char*, int)>("fake_push_recv");
        pushSend = get<void (*)(int, int)>("fake_push_send");
        setOption = get<void (*)(unsigned, int)>("fake_set_option");
        setSelectDefault = get<void (*)(int)>("fake_set_select_default");
        setUriFamily = get<void (*)(int)>("fake_set_uri_family");
        m_log = get<const char* (*)()>("fake_log");
        m_count = get<int (*)(const char*)>("fake_count");
        m_last_config = get<const char* (*)()>("fake_last_config");
        m_last_url = get<const char* (*)()>("fake_last_url");
        lastTarget = get<void (*)(sockaddr_storage*)>("fake_last_target");
        m_sent = get<const char* (*)(int*)>("fake_sent");
        detailAllocs = get<int (*)()>("fake_detail_allocs");
        detailFrees = get<int (*)()>("fake_detail_frees");
        reset();
    }
    ~FakeCrypto() {
        if (m_module != nullptr) dlclose(m_module);
    }
    FakeCrypto(const FakeCrypto&) = delete;
    FakeCrypto& operator=(const FakeCrypto&) = delete;

    static std::string besideProgram() {
        char path[PATH_MAX];
        ssize_t n = readlink("/proc/self/exe", path, sizeof path - 1);
        if (n <= 0) return "libVLT_Crypto_Interface.so";
        path[n] = '\0';
        std::string dir(path);
        return dir.substr(0, dir.rfind('/')) + "/libVLT_Crypto_Interface.so";
    }

    std::string log() const { return m_log(); }
    int count(const char* entry) const { return m_count(entry); }
    std::string lastConfig() const { return m_last_config(); }
    std::string lastUrl() const { return m_last_url(); }
    std::string sent() const {
        int n = 0;
        const char* p = m_sent(&n);
        return std::string(p, static_cast<size_t>(n));
    }

    void (*reset)();
    void (*clearLog)();
    void (*pushResult)(const char* entry, int rc);
    void (*pushRecv)(int rc, const char* data, int length);
    void (*pushSend)(int rc, int take);
    void (*setOption)(unsigned option, int value);
    void (*setSelectDefault)(int rc);
    void (*setUriFamily)(int family);
    void (*lastTarget)(sockaddr_storage* out);
    int (*detailAllocs)();
    int (*detailFrees)();

private:
    template <class Fn>
    Fn get(const char* name) {
        void* p = dlsym(m_module, name);
        if (p == nullptr) throw std::runtime_error(std::string("the stand-in library lacks ") + name);
        return reinterpret_cast<Fn>(p);
    }

    void* m_module = nullptr;
    const char* (*m_log)();
    int (*m_count)(const char*);
    const char* (*m_last_config)();
    const char* (*m_last_url)();
    const char* (*m_sent)(int*);
};

#endif
