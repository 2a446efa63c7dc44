#include "talvex/TALVEX.h"

#include <xercesc/util/XMLException.hpp>

#include <string>

#include "frame/TALVEXRaise.h"
#include "moxcore/MOXCore.h"
#include "moxcore/MOXThrow.h"
#include "moxidom/XmlUrl.h"
#include "platform/winsock.h"
#include "session/TALVEXSessionImp.h"
#include "talvex/TALVEXHostID.h"
#include "transport/TALVEXSocketNonSSL.h"
#include "transport/TALVEXSocketSSL.h"

static const char MOX_UNIT[] = "TALVEX";

long TALVEXInitialize() {
    WSADATA data;
    int rc = WSAStartup(0x0101, &data);
    if (rc != 0) return rc;
    return moxInitialize("TALVEX");
}

long TALVEXTerminate() {
    long rc = moxTerminate("TALVEX");
    WSACleanup();
    return rc;
}

TALVEX::TALVEX() : m_use_ssl(1), m_non_blocking(0) {}

TALVEX::~TALVEX() {}

TALVEX* TALVEX::newInstance() { return MOX_NEW_AT(201, TALVEX); }

int TALVEX::getUseSSL() { return m_use_ssl; }

void TALVEX::setUseVLT(int useSecureSockets) { m_use_ssl = useSecureSockets; }

int TALVEX::getUseNonBlockingSockets() { return m_non_blocking; }

void TALVEX::setUseNonBlockingSockets(int nonBlocking) { m_non_blocking = nonBlocking; }

TALVEXSocket* TALVEX::getSocket() {
    if (m_use_ssl != 0) return MOX_NEW_AT(188, TALVEXSocketSSL, m_non_blocking);
    return MOX_NEW_AT(191, TALVEXSocketNonSSL, m_non_blocking);
}

TALVEXSession* TALVEX::getSession(const char* host, int port, const char* uriPath, const char* secureConfig,
                                  int timeLimitSec) {
    if (host == nullptr) MOX_THROW(MOXIllegalArgumentError, "TALVEX::getSession - no host was given");
    TALVEXSocket* socket = nullptr;
    TALVEXSession* session = nullptr;
    try {
        TALVEXHostID hostId(host, port);
        if (!hostId.isValid())
            TALVEX_RAISE_AT(107, "TALVEX::getSession", ErrHostNotResolved,
                            TALVEXMessage(0xF2AB213D) << MOXMessageParm(I18NString(host)));
        socket = getSocket();
        socket->open(port, hostId.getIPAddress(), secureConfig, timeLimitSec);
        // Requests name the host as the caller gave it.
        std::string name = host;
        if (name.find(':') != std::string::npos && name.front() != '[') name = "[" + name + "]";
        socket->setAuthority(name + ":" + std::to_string(port));
        session = MOX_NEW_AT(112, TALVEXSessionImp, socket, uriPath);
        return session;
    } catch (MOXThrowable& t) {
        delete session;
        if (session == nullptr) delete socket;
        t.addBackTrace(MOX_AT(117), "TALVEX::getSession", "MOX_RETHROW");
        throw;
    } catch (...) {
        delete session;
        if (session == nullptr) delete socket;
        throw;
    }
}

TALVEXSession* TALVEX::getSession(const char* url, const char* secureConfig, int timeLimitSec) {
    if (url == nullptr) MOX_THROW(MOXIllegalArgumentError, "TALVEX::getSession - no URL was given");
    TALVEXSocket* socket = nullptr;
    TALVEXSession* session = nullptr;
    try {
        socket = getSocket();
        socket->open(url, secureConfig, timeLimitSec);
    } catch (MOXThrowable& t) {
        delete socket;
        t.addBackTrace(MOX_AT(142), "TALVEX::getSession", "MOX_RETHROW");
        throw;
    } catch (...) {
        delete socket;
        throw;
    }
    try {
        XmlUrl parsed{I18NString(url)};
        I18NString path = parsed.getPath();
        session = MOX_NEW_AT(156, TALVEXSessionImp, socket, path.c_str());
        return session;
    } catch (const XERCES_CPP_NAMESPACE::XMLException&) {
        delete session;
        if (session == nullptr) delete socket;
        TALVEX_RAISE_AT(172, "TALVEX::getSession", ErrUrl,
                        TALVEXMessage(0xF2A26477) << MOXMessageParm(I18NString(url))
                                                  << MOXMessageParm(I18NString("XMLException")));
    } catch (...) {
        delete session;
        if (session == nullptr) delete socket;
        throw;
    }
}
