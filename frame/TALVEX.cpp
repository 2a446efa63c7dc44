#include "talvex/TALVEX.h"

#include "moxcore/MOXCore.h"
#include "moxcore/MOXThrow.h"
#include "platform/winsock.h"

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
