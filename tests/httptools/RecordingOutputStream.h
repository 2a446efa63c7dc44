#ifndef TESTS_HTTPTOOLS_RECORDINGOUTPUTSTREAM_H
#define TESTS_HTTPTOOLS_RECORDINGOUTPUTSTREAM_H

#include <string>
#include <vector>

#include "talvex/PNXOutputStream.h"

// Keeps every write() call apart, with the address it was given, so tests can
// see both the bytes and how the sender cut them into writes.
class RecordingOutputStream : public PNXOutputStream {
public:
    struct Call {
        const char* data;
        std::string bytes;
    };

    void write(const char* data, unsigned int length) override;
    void flush() override { ++m_flushes; }

    std::string all() const;
    std::size_t writeCount() const { return m_calls.size(); }
    const std::vector<Call>& calls() const { return m_calls; }
    unsigned flushCount() const { return m_flushes; }

    // The n-th write from now on (1 for the next) raises MOXUnexpectedError
    // without keeping anything, as a dropped connection would.
    void failAtWrite(int n) { m_fail_in = n; }

private:
    std::vector<Call> m_calls;
    unsigned m_flushes = 0;
    int m_fail_in = 0;
};

#endif
