#ifndef TALVEX_TESTS_CHILDPROCESS_H
#define TALVEX_TESTS_CHILDPROCESS_H

// A peer program run by a test: started with its output in a log file,
// ended (TERM, then KILL) when the object goes. Also finds free loopback
// ports and waits until a port accepts connections.

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

class ChildProcess {
public:
    // Runs program with args (argv[0] included) in dir, output to logPath.
    ChildProcess(const std::vector<std::string>& args, const std::string& dir, const std::string& logPath)
        : m_log(logPath) {
        m_pid = ::fork();
        if (m_pid == 0) {
            int log = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
            if (log >= 0) {
                ::dup2(log, 1);
                ::dup2(log, 2);
                ::close(log);
            }
            if (!dir.empty() && ::chdir(dir.c_str()) != 0) ::_exit(126);
            std::vector<char*> argv;
            for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
            argv.push_back(nullptr);
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
    }

    ~ChildProcess() { stop(); }

    bool started() const { return m_pid > 0; }

    // Whether the program is still running; once it ended, exitStatus() tells how.
    bool running() {
        if (m_pid <= 0) return false;
        int status = 0;
        if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
            m_pid = -1;
            m_status = status;
            return false;
        }
        return true;
    }
    int exitStatus() const { return m_status; }

    void stop() {
        if (!running()) return;
        ::kill(m_pid, SIGTERM);
        for (int i = 0; i < 300 && running(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        if (running()) {
            ::kill(m_pid, SIGKILL);
            ::waitpid(m_pid, &m_status, 0);
            m_pid = -1;
        }
    }

    std::string log() const {
        std::ifstream in(m_log);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }

    // A loopback port nobody listens on right now.
    static int freePort() {
        int fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        ::bind(fd, reinterpret_cast<sockaddr*>(&a), len);
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
        ::close(fd);
        return ntohs(a.sin_port);
    }

    // Waits until 127.0.0.1:port accepts a connection, while the program runs.
    bool waitForPort(int port, int timeoutMs) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (std::chrono::steady_clock::now() < end) {
            if (!running()) return false;
            int fd = ::socket(AF_INET, SOCK_STREAM, 0);
            sockaddr_in a{};
            a.sin_family = AF_INET;
            a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
            a.sin_port = htons(static_cast<uint16_t>(port));
            const bool ok = ::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
            ::close(fd);
            if (ok) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
        }
        return false;
    }

private:
    pid_t m_pid = -1;
    int m_status = 0;
    std::string m_log;
};

#endif
