#ifndef TALVEX_HTTP_TALVEXENABLEDOUTPUTSTREAM_H
#define TALVEX_HTTP_TALVEXENABLEDOUTPUTSTREAM_H

#include "talvex/PNXOutputStream.h"

// The one stream a message writer hands out for the envelope and each
// attachment. It passes writes straight to the open part's body stream while
// enabled; closing the part disables it, and a later write fails instead of
// slipping bytes into the wrong part.
class TALVEXEnabledOutputStream : public PNXOutputStream {
public:
    TALVEXEnabledOutputStream();
    ~TALVEXEnabledOutputStream() override;

    void write(const char* data, unsigned int length) override;
    virtual int isEnabled();

    void setEnabled(int enabled) { m_enabled = enabled; }
    void setOutputStream(PNXOutputStream* target) { m_target = target; }

private:
    int m_enabled;
    PNXOutputStream* m_target;
};

#endif
