#ifndef TALVEX_TESTS_SCRIPTEDINPUTSTREAM_H
#define TALVEX_TESTS_SCRIPTEDINPUTSTREAM_H

#include <cstring>
#include <string>
#include <vector>

#include "moxcore/MOXByteBuffer.h"
#include "pnxstreams/PNXInputStream.h"

// An inner stream over bytes in memory whose reads deliver at most the next
// size of a script (the script repeats; empty = no limit), so a test decides
// where the data is cut between reads. It records what its readers asked for
// and what they gave back.
class ScriptedInputStream : public PNXInputStream {
public:
    explicit ScriptedInputStream(std::string data, std::vector<unsigned> sizes = {}, bool canUnread = true)
        : m_data(std::move(data)), m_sizes(std::move(sizes)), m_can_unread(canUnread) {
        m_requests.reserve(4096);  // recording must not allocate while a test counts allocations
    }

    int read() override {
        ++m_calls;
        if (m_pos >= m_data.size()) return -1;
        return static_cast<unsigned char>(m_data[m_pos++]);
    }

    unsigned read(char* buf, unsigned n) override {
        ++m_calls;
        m_requests.push_back(n);
        if (n == 0) return 0;
        if (m_pos >= m_data.size()) return PNX_EOF;
        unsigned k = static_cast<unsigned>(m_data.size() - m_pos);
        if (k > n) k = n;
        if (!m_sizes.empty()) {
            const unsigned limit = m_sizes[m_step++ % m_sizes.size()];
            if (k > limit) k = limit;
        }
        std::memcpy(buf, m_data.data() + m_pos, k);
        m_pos += k;
        return k;
    }

    unsigned read(MOXByteBuffer& b, unsigned n) override {
        std::vector<char> tmp(n == 0 ? 1 : n);
        const unsigned r = read(tmp.data(), n);
        if (r != PNX_EOF && r > 0) b.appendChars(tmp.data(), r);
        return r;
    }

    int canUnread() const override { return m_can_unread ? 1 : 0; }

    void unread(const char* bytes, unsigned n) override {
        m_unread.append(bytes, n);
        m_data.insert(m_pos, bytes, n);
    }

    // What was not read yet (including bytes given back).
    std::string rest() const { return m_data.substr(m_pos); }
    unsigned calls() const { return m_calls; }
    const std::vector<unsigned>& requests() const { return m_requests; }
    const std::string& unreadBytes() const { return m_unread; }

private:
    std::string m_data;
    std::vector<unsigned> m_sizes;
    bool m_can_unread;
    size_t m_pos = 0;
    size_t m_step = 0;
    unsigned m_calls = 0;
    std::vector<unsigned> m_requests;
    std::string m_unread;
};

#endif
