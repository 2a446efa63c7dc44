#ifndef PNXSTREAMS_PNXFILTERINPUTSTREAM_H
#define PNXSTREAMS_PNXFILTERINPUTSTREAM_H

#include "pnxstreams/PNXInputStream.h"

// A stream over an inner stream. The inner stream is never owned: closing or
// destroying the filter leaves it untouched. Time limits and cancellation are
// the inner stream's, so a time-out set on a connection's stream is seen
// through every filter stacked on it.
class PNXFilterInputStream : public PNXInputStream {
public:
    explicit PNXFilterInputStream(PNXInputStream* inner);

    void close() override;

    int canTimeout() const override;
    int setTimeout(int seconds) override;
    int getTimeout() const override;
    int canCancel() const override;
    int setCancel(int on) override;
    int getCancel() const override;
    void cancel() override;

protected:
    PNXInputStream* m_inner;
};

#endif
