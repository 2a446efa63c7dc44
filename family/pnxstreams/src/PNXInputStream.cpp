#include "pnxstreams/PNXInputStream.h"

#include "moxcore/MOXByteBuffer.h"

PNXInputStream::~PNXInputStream() = default;

unsigned PNXInputStream::read(char* buf, unsigned n) {
    if (n == 0) return 0;
    const int c = read();
    if (c < 0) return PNX_EOF;
    buf[0] = static_cast<char>(c);
    return 1;
}

unsigned PNXInputStream::readFully(char* buf, unsigned n) {
    unsigned got = 0;
    while (got < n) {
        const unsigned r = read(buf + got, n - got);
        // A stream breaking its contract with 0 would otherwise spin here.
        if (r == PNX_EOF || r == 0) break;
        got += r;
    }
    return (got == 0 && n > 0) ? PNX_EOF : got;
}

unsigned PNXInputStream::readFully(MOXByteBuffer& b, unsigned n) {
    unsigned got = 0;
    while (got < n) {
        const unsigned r = read(b, n - got);
        if (r == PNX_EOF || r == 0) break;
        got += r;
    }
    return (got == 0 && n > 0) ? PNX_EOF : got;
}

void PNXInputStream::close() {}

int PNXInputStream::canUnread() const { return 0; }

void PNXInputStream::unread(const char*, unsigned) { throw static_cast<const char*>("not implemented"); }

int PNXInputStream::canTimeout() const { return 0; }
int PNXInputStream::setTimeout(int) { return 0; }
int PNXInputStream::getTimeout() const { return 0; }
int PNXInputStream::canCancel() const { return 0; }
int PNXInputStream::setCancel(int) { return 0; }
int PNXInputStream::getCancel() const { return 0; }
void PNXInputStream::cancel() {}
