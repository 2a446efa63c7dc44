#ifndef TESTS_DOM_RECORDINGDOMWRITER_H
#define TESTS_DOM_RECORDINGDOMWRITER_H

#include <string>
#include <vector>

#include "moxidom/DomWriter.h"

// Records every call of the three write operations, in order. Newlines are
// recorded as "\r\n", the way the toolkit's writer puts them on the wire.
class RecordingDomWriter : public DomWriter {
public:
    enum Kind { DATA, NEWLINE, TEXT };
    struct Call {
        Kind kind;
        std::string bytes;
    };

    void write(const char* data, unsigned int length) override { calls.push_back({DATA, std::string(data, length)}); }
    void writeNewLine() override { calls.push_back({NEWLINE, "\r\n"}); }
    void write(const char* text) override { calls.push_back({TEXT, text != nullptr ? text : ""}); }

    std::string output() const {
        std::string all;
        for (const Call& c : calls) all += c.bytes;
        return all;
    }
    size_t count(Kind kind) const {
        size_t n = 0;
        for (const Call& c : calls) n += c.kind == kind;
        return n;
    }

    std::vector<Call> calls;
};

#endif
