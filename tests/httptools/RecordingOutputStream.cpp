#include "RecordingOutputStream.h"

#include "moxcore/MOXErrors.h"

void RecordingOutputStream::write(const char* data, unsigned int length) {
    if (m_fail_in > 0 && --m_fail_in == 0) throw MOXUnexpectedError(0, "connection dropped");
    m_calls.push_back(Call{data, std::string(data, length)});
}

std::string RecordingOutputStream::all() const {
    std::string out;
    for (const Call& call : m_calls) out += call.bytes;
    return out;
}
