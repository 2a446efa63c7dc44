#ifndef TALVEX_TALVEXSOCKETINPUTSTREAM_H
#define TALVEX_TALVEXSOCKETINPUTSTREAM_H

#include <atomic>

#include "pnxstreams/PNXInputStream.h"
#include "talvex/TALVEXExport.h"

class TALVEXSocket;

/// The input stream of a socket, with time-outs and cancellation built on the
/// socket's time-limit callback. Three modes:
///   free      no limit (initial; setTimeout(0), setCancel(0));
///   time-out  setTimeout(n): reads throw PNXIOTimeoutException once n seconds
///             have passed since the limit was set, whether or not data came;
///   cancel    setCancel(1): cancel() from another thread makes the read under
///             way throw PNXIOCancelException within about a second.
/// The plain socket always honours them; the secure socket only in
/// non-blocking mode.
class TALVEX_API TALVEXSocketInputStream : public PNXInputStream {
public:
    TALVEXSocketInputStream();
    ~TALVEXSocketInputStream() override;

    int canTimeout() const override;
    int setTimeout(int timeLimitSec) override;
    int getTimeout() const override;
    int canCancel() const override;
    int setCancel(int on) override;
    int getCancel() const override;
    /// May be called from another thread while the owner waits in a read.
    void cancel() override;
    virtual TALVEXSocket* getStreamSocket() = 0;

    /// The callback installed into the socket; instancePointer is the stream.
    static void timeoutHandler(void* instancePointer);

protected:
    TALVEXSocket* streamSocket() const;

private:
    int m_cancel_mode;
    std::atomic<int> m_cancel_request;  ///< set by cancel() on another thread
};

#endif
