// Random multipart bodies taken apart by the multipart stream and by Python's
// email package must give the same parts: the same headers and the same bytes.
#include <gtest/gtest.h>

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "MultipartBody.h"
#include "PartReader.h"
#include "ScriptedInputStream.h"
#include "mime/TALVEXMPInputStream.h"

namespace {

// Runs a command and returns what it printed; its exit status goes to `status`.
std::string run(const std::string& command, int& status) {
    std::string out;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        status = -1;
        return out;
    }
    char buf[65536];
    for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) out.append(buf, n);
    status = pclose(pipe);
    return out;
}

// Per message, per part: the "H name\tvalue" lines and the "B hex" line.
std::vector<std::vector<std::string>> parseEmailOutput(const std::string& out) {
    std::vector<std::vector<std::string>> messages;
    std::istringstream lines(out);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.rfind("MESSAGE ", 0) == 0) {
            messages.emplace_back();
        } else if (line == "PART") {
            messages.back().emplace_back();
        } else if (!messages.empty() && !messages.back().empty()) {
            messages.back().back() += line + "\n";
        }
    }
    return messages;
}

}  // namespace

TEST(MultipartEmail, RandomBodiesSplitLikeThePythonEmailPackage) {
    char dirTemplate[] = "/tmp/talvex-multipart-XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(dirTemplate));
    const std::string dir = dirTemplate;

    std::mt19937 rng(1234567);
    std::vector<MultipartBody> bodies;
    std::vector<std::string> files;
    std::string command = "python3 " TALVEX_TEST_SOURCE_DIR "/tests/multipart-stream/email_parts.py";
    for (int i = 0; i < 300; ++i) {
        bodies.push_back(MultipartBody::random(rng));
        const std::string path = dir + "/message" + std::to_string(i);
        files.push_back(path);
        std::ofstream f(path, std::ios::binary);
        f << "Content-Type: multipart/mixed; boundary=\"" << bodies.back().boundary << "\"\r\n\r\n"
          << bodies.back().bytes();
        command += " " + path;
    }
    int status = 0;
    const std::string out = run(command, status);
    for (const std::string& path : files) std::remove(path.c_str());
    rmdir(dir.c_str());
    ASSERT_EQ(0, status) << "python3 with the email package is needed:\n" << out;
    const auto expected = parseEmailOutput(out);
    ASSERT_EQ(bodies.size(), expected.size());

    unsigned parts = 0;
    for (size_t i = 0; i < bodies.size(); ++i) {
        const MultipartBody& body = bodies[i];
        std::vector<unsigned> sizes;
        for (int k = 0; k < 8; ++k) sizes.push_back(1 + MultipartBody::pick(rng, i % 4 == 0 ? 4 : 1100));
        ScriptedInputStream in(body.bytes(), sizes, i % 2 == 0);
        in.unread("\r\n", 2);  // as the message reader does
        TALVEXMPInputStream mp(&in, body.boundary);
        PartReader reader(static_cast<unsigned>(i));
        const std::vector<std::string> ours = reader.readAll(mp);
        ASSERT_EQ(expected[i].size(), ours.size()) << "message " << i << " boundary [" << body.boundary << "]";
        for (size_t p = 0; p < ours.size(); ++p) {
            ASSERT_EQ(expected[i][p], ours[p]) << "message " << i << " part " << p;
        }
        parts += static_cast<unsigned>(ours.size());
        mp.unWrap();
    }
    EXPECT_GT(parts, 700u);
}
