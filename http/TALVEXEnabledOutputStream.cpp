#include "http/TALVEXEnabledOutputStream.h"

#include "moxcore/MOXThrow.h"

static const char MOX_UNIT[] = "TALVEXEnabledOutputStream";

TALVEXEnabledOutputStream::TALVEXEnabledOutputStream() : m_enabled(0), m_target(nullptr) {}

TALVEXEnabledOutputStream::~TALVEXEnabledOutputStream() { m_target = nullptr; }

void TALVEXEnabledOutputStream::write(const char* data, unsigned int length) {
    if (m_enabled == 0 || m_target == nullptr)
        MOX_THROW(MOXIllegalStateError,
                  "[TALVEXEnabledOutputStream::write] - output stream not enabled (is this envelope or attachment closed?)");
    m_target->write(data, length);
}

int TALVEXEnabledOutputStream::isEnabled() { return m_enabled; }
