#include "WireChecker.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace {

std::string run(const std::string& command, int& exitCode) {
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        exitCode = -1;
        return "popen failed";
    }
    char buffer[4096];
    std::size_t n;
    while ((n = std::fread(buffer, 1, sizeof(buffer), pipe)) > 0) output.append(buffer, n);
    int status = pclose(pipe);
    exitCode = (status != -1 && WIFEXITED(status)) ? WEXITSTATUS(status) : -1;
    return output;
}

}  // namespace

bool WireChecker::available() {
    int exitCode = -1;
    run("python3 -c 'import email.parser, http.client, http.server' 2>&1", exitCode);
    return exitCode == 0;
}

std::string WireChecker::describe(const std::string& message, int& exitCode) {
    char path[] = "/tmp/httptools-wire-XXXXXX";
    int fd = mkstemp(path);
    if (fd < 0) {
        exitCode = -1;
        return "mkstemp failed";
    }
    close(fd);
    {
        std::ofstream file(path, std::ios::binary);
        file.write(message.data(), static_cast<std::streamsize>(message.size()));
    }
    std::string command = std::string("python3 '") + TALVEX_TEST_SOURCE_DIR + "/tests/httptools/wire_check.py' '" + path +
                          "' 2>&1";
    std::string output = run(command, exitCode);
    std::remove(path);
    return output;
}
