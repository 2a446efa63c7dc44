// Socket options: buffer sizes and the blocking mode.
#include "internal.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

using namespace vlt;

namespace {

std::string optionName(unsigned int option) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%X", option);
    return text;
}

}  // namespace

// VLT_SO_SNDBUF / VLT_SO_RCVBUF: the kernel's buffer size of the connected
// socket, as an int (length 4).
int VLT_GetSockOpt(VLT_HANDLE handle, unsigned int option, void* value, int* length, int /*reserved*/) {
    return guarded([&] {
        auto c = findConnection(handle);
        if (!c) return unknownHandle(handle);
        std::lock_guard<std::mutex> lock(c->mutex);
        if (value == nullptr || length == nullptr || *length < static_cast<int>(sizeof(int)))
            return fail(*c, VLT_E_INVALID_ARGUMENT, "VLT_GetSockOpt needs an int value and its length (4)");
        int level = 0;
        if (option == VLT_SO_SNDBUF) level = SO_SNDBUF;
        else if (option == VLT_SO_RCVBUF) level = SO_RCVBUF;
        else return fail(*c, VLT_E_NOT_SUPPORTED, "socket option " + optionName(option) + " is not supported");
        if (c->io.fd < 0) return fail(*c, VLT_E_INVALID_ARGUMENT, "the handle has no socket yet: connect first");
        int size = 0;
        socklen_t sizeLength = sizeof size;
        if (::getsockopt(c->io.fd, SOL_SOCKET, level, &size, &sizeLength) != 0)
            return fail(*c, VLT_E_SOCKET, "getsockopt: " + systemErrorText(errno));
        std::memcpy(value, &size, sizeof size);
        *length = sizeof(int);
        return VLT_S_OK;
    });
}

// VLT_FIONBIO: 1 switches the connection to non-blocking mode, 0 back to
// blocking; allowed before or after connecting. VLT_SO_CONNECT_TIMEOUT: the
// milliseconds the next connect and its handshake may take together (0: the
// defaults), set before connecting. VLT_SO_SNDBUF / VLT_SO_RCVBUF set the
// kernel's buffer sizes of the connected socket.
int VLT_SetSockOpt(VLT_HANDLE handle, unsigned int option, const void* value, int length, int /*reserved*/) {
    return guarded([&] {
        auto c = findConnection(handle);
        if (!c) return unknownHandle(handle);
        std::lock_guard<std::mutex> lock(c->mutex);
        if (value == nullptr || length < static_cast<int>(sizeof(int)))
            return fail(*c, VLT_E_INVALID_ARGUMENT, "VLT_SetSockOpt needs an int value and its length (4)");
        int v = 0;
        std::memcpy(&v, value, sizeof v);
        if (option == VLT_FIONBIO) {
            c->io.nonBlocking = v != 0;
            return VLT_S_OK;
        }
        if (option == VLT_SO_CONNECT_TIMEOUT) {
            if (v < 0) return fail(*c, VLT_E_INVALID_ARGUMENT, "VLT_SO_CONNECT_TIMEOUT takes milliseconds, 0 or more");
            c->connectLimitMs = v;
            return VLT_S_OK;
        }
        int level = 0;
        if (option == VLT_SO_SNDBUF) level = SO_SNDBUF;
        else if (option == VLT_SO_RCVBUF) level = SO_RCVBUF;
        else return fail(*c, VLT_E_NOT_SUPPORTED, "socket option " + optionName(option) + " is not supported");
        if (c->io.fd < 0) return fail(*c, VLT_E_INVALID_ARGUMENT, "the handle has no socket yet: connect first");
        if (::setsockopt(c->io.fd, SOL_SOCKET, level, &v, sizeof v) != 0)
            return fail(*c, VLT_E_SOCKET, "setsockopt: " + systemErrorText(errno));
        return VLT_S_OK;
    });
}
