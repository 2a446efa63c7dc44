#ifndef TALVEX_TOOLS_CALLOPTIONS_H
#define TALVEX_TOOLS_CALLOPTIONS_H

#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

// The command line of talvex-call.

struct AttachmentSpec {
    std::string path;
    std::string type;  // empty: guessed from the file name
    std::string id;    // empty: the file's base name
};

enum class Transport { FromUrl, Plain, Tls };

struct CallOptions {
    std::string url;
    std::string envelopeFile = "-";
    bool hasAction = false;
    std::string action;
    std::vector<std::pair<std::string, std::string>> headers;
    bool soap12 = false;   // --soap12, or an envelope in the SOAP 1.2 namespace
    std::string boundary;  // empty: a fresh one for each message
    std::vector<AttachmentSpec> attachments;
    std::string saveDir;
    bool contentLength = false;
    int chunkSize = 0;  // 0: the toolkit's default
    Transport transport = Transport::FromUrl;
    std::string caFile;
    std::string caPath;
    std::string certFile;
    std::string keyFile;
    std::string serverName;
    std::string minTls;
    std::string tlsConfigFile;  // a sessionConfigDocument the TLS options add to
    bool insecure = false;
    int connectTimeout = 30;
    int timeout = 0;
    int nonBlocking = -1;  // -1: chosen from the transport
    std::string traceFile;
    int repeat = 1;
    bool verbose = false;
    bool quiet = false;
    bool help = false;

    bool useTls() const;
    bool useNonBlocking() const;
    // The value of a -H header (name in any case), or null.
    const std::string* header(const char* name) const;
};

// A command line that cannot be used; the text says why.
class UsageError : public std::runtime_error {
public:
    explicit UsageError(const std::string& text) : std::runtime_error(text) {}
};

CallOptions parseCommandLine(int argc, char** argv);
const char* helpText();

#endif
