#ifndef TALVEX_TESTS_WIRECAPTURE_H
#define TALVEX_TESTS_WIRECAPTURE_H

// Runs a writing step against a plain socket connected to a loopback server and
// returns every byte the server received, and the same bytes as Python's
// standard library takes them apart (tests/support/http_message.py).

#include <cstdio>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "LoopbackServer.h"
#include "transport/TALVEXSocketNonSSL.h"

struct ParsedPart {
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::string header(const std::string& name) const {
        for (const auto& h : headers)
            if (h.first == name) return h.second;
        return "<absent>";
    }
};

struct ParsedMessage {
    std::string start;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::vector<ParsedPart> parts;
    std::string error;
};

inline std::string fromHex(const std::string& hex) {
    std::string out;
    for (size_t i = 0; i + 1 < hex.size(); i += 2) out += static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16));
    return out;
}

inline ParsedMessage parseWithPython(const std::string& wire) {
    char path[] = "/tmp/talvex-wire-XXXXXX";
    int fd = mkstemp(path);
    ::close(fd);
    {
        std::ofstream f(path, std::ios::binary);
        f << wire;
    }
    std::string command = std::string("python3 ") + TALVEX_TEST_SOURCE_DIR + "/tests/support/http_message.py " + path;
    FILE* p = popen(command.c_str(), "r");
    std::string output;
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) output.append(buf, n);
    pclose(p);
    std::remove(path);

    ParsedMessage m;
    size_t pos = 0;
    while (pos < output.size()) {
        size_t eol = output.find('\n', pos);
        std::string line = output.substr(pos, eol - pos);
        pos = eol == std::string::npos ? output.size() : eol + 1;
        auto rest = [&](size_t k) { return line.substr(k); };
        auto split = [](const std::string& s) {
            size_t c = s.find(": ");
            return c == std::string::npos ? std::make_pair(s, std::string()) : std::make_pair(s.substr(0, c), s.substr(c + 2));
        };
        if (line.rfind("START ", 0) == 0) m.start = rest(6);
        else if (line.rfind("HEADER ", 0) == 0) m.headers.push_back(split(rest(7)));
        else if (line.rfind("BODY ", 0) == 0) m.body = fromHex(rest(5));
        else if (line == "PART") m.parts.emplace_back();
        else if (line.rfind("PHEADER ", 0) == 0) m.parts.back().headers.push_back(split(rest(8)));
        else if (line.rfind("PBODY ", 0) == 0) m.parts.back().body = fromHex(rest(6));
        else if (line.rfind("ERROR ", 0) == 0) m.error = rest(6);
    }
    if (output.empty()) m.error = "python3 printed nothing";
    return m;
}

// Connects a plain socket to a fresh loopback server, runs `write`, closes the
// socket and returns what arrived.
inline std::string captureWire(const std::function<void(TALVEXSocketNonSSL&)>& write) {
    std::string received;
    {
        LoopbackServer server([&](int fd) { received = LoopbackServer::readAll(fd); });
        TALVEXSocketNonSSL socket(0);
        socket.open(server.url().c_str(), nullptr, 5);
        write(socket);
        socket.close();
        server.stop();
    }
    return received;
}

#endif
