#ifndef TESTS_DOM_FILEWATCH_H
#define TESTS_DOM_FILEWATCH_H

#include <sys/inotify.h>
#include <unistd.h>

#include <string>

// Watches a file for being opened or read, through inotify.
class FileWatch {
public:
    explicit FileWatch(const std::string& path) : m_fd(inotify_init1(IN_NONBLOCK)), m_watch(-1) {
        if (m_fd >= 0) m_watch = inotify_add_watch(m_fd, path.c_str(), IN_OPEN | IN_ACCESS);
    }
    ~FileWatch() {
        if (m_fd >= 0) close(m_fd);
    }
    bool ok() const { return m_watch >= 0; }
    // Whether the file was opened or read since the last call.
    bool touched() {
        char buf[4096];
        bool any = false;
        while (::read(m_fd, buf, sizeof buf) > 0) any = true;
        return any;
    }

private:
    int m_fd;
    int m_watch;
};

#endif
