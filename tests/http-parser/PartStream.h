#ifndef TALVEX_TESTS_PARTSTREAM_H
#define TALVEX_TESTS_PARTSTREAM_H

#include <string>

#include "pnxstreams/PNXBufferedInputStream.h"

// The bytes of one MIME part as the multipart stream gives them: readline
// answers 0 rather than the end-of-data mark once the part has ended, also
// after appending an unterminated last line.
class PartStream : public PNXBufferedInputStream {
public:
    explicit PartStream(std::string data);

    int read() override;
    using PNXBufferedInputStream::readline;
    unsigned readline(MOXByteBuffer& b, unsigned max) override;

private:
    std::string m_data;
    size_t m_pos;
};

#endif
