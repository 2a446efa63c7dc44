#include "CallOptions.h"

#include <getopt.h>
#include <strings.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "moxhttptools/MultipartHttpMsg.h"

namespace {

bool startsWithNoCase(const std::string& text, const char* prefix) {
    return strncasecmp(text.c_str(), prefix, std::strlen(prefix)) == 0;
}

std::string trim(const std::string& text) {
    const size_t begin = text.find_first_not_of(" \t");
    if (begin == std::string::npos) return "";
    const size_t end = text.find_last_not_of(" \t");
    return text.substr(begin, end - begin + 1);
}

int parseCount(const char* option, const char* text, int minimum) {
    errno = 0;
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    if (*text == '\0' || *end != '\0' || errno != 0 || value < minimum || value > INT_MAX)
        throw UsageError(std::string(option) + " needs a whole number of at least " + std::to_string(minimum) +
                         ", not '" + text + "'");
    return static_cast<int>(value);
}

std::pair<std::string, std::string> parseHeader(const char* text) {
    const std::string line = text;
    const size_t colon = line.find(':');
    if (colon == std::string::npos || trim(line.substr(0, colon)).empty())
        throw UsageError(std::string("-H needs 'Name: value', not '") + text + "'");
    const std::string name = trim(line.substr(0, colon));
    for (char c : name)
        if (c <= ' ' || c >= 127) throw UsageError("header name '" + name + "' holds a blank or a control character");
    return {name, trim(line.substr(colon + 1))};
}

// FILE[;type=T][;id=ID]; the file name itself may not contain ";type=" or ";id=".
AttachmentSpec parseAttachment(const char* text) {
    AttachmentSpec spec;
    std::string rest = text;
    size_t cut = std::string::npos;
    for (const char* key : {";type=", ";id="}) {
        size_t at = rest.find(key);
        if (at != std::string::npos && (cut == std::string::npos || at < cut)) cut = at;
    }
    spec.path = rest.substr(0, cut);
    if (cut != std::string::npos) rest = rest.substr(cut + 1);
    else rest.clear();
    while (!rest.empty()) {
        // Parameters are split at ";" followed by a known key, so a type may
        // carry its own parameters: ";type=text/plain; charset=UTF-8".
        size_t next = std::string::npos;
        for (const char* key : {";type=", ";id="}) {
            size_t at = rest.find(key);
            if (at != std::string::npos && (next == std::string::npos || at < next)) next = at;
        }
        const std::string parameter = rest.substr(0, next);
        rest = next == std::string::npos ? "" : rest.substr(next + 1);
        if (startsWithNoCase(parameter, "type=")) spec.type = trim(parameter.substr(5));
        else if (startsWithNoCase(parameter, "id=")) spec.id = trim(parameter.substr(3));
    }
    if (spec.path.empty()) throw UsageError(std::string("--attach needs a file name: '") + text + "'");
    return spec;
}

enum LongOnly {
    OptAction = 1000,
    OptSoap12,
    OptBoundary,
    OptAttach,
    OptSave,
    OptContentLength,
    OptChunkSize,
    OptPlain,
    OptTls,
    OptCa,
    OptCaPath,
    OptCert,
    OptKey,
    OptServerName,
    OptMinTls,
    OptTlsConfig,
    OptConnectTimeout,
    OptTimeout,
    OptNonBlocking,
    OptBlocking,
    OptTrace,
    OptRepeat
};

}  // namespace

bool CallOptions::useTls() const {
    if (transport == Transport::Plain) return false;
    if (transport == Transport::Tls) return true;
    return startsWithNoCase(url, "https://");
}

const std::string* CallOptions::header(const char* name) const {
    for (const auto& h : headers)
        if (strcasecmp(h.first.c_str(), name) == 0) return &h.second;
    return nullptr;
}

bool CallOptions::useNonBlocking() const {
    // The secure socket honours time-outs and cancellation only in
    // non-blocking mode, so TLS goes non-blocking unless told otherwise.
    if (nonBlocking >= 0) return nonBlocking != 0;
    return useTls();
}

CallOptions parseCommandLine(int argc, char** argv) {
    static const option longOptions[] = {
        {"action", required_argument, nullptr, OptAction},
        {"header", required_argument, nullptr, 'H'},
        {"soap12", no_argument, nullptr, OptSoap12},
        {"boundary", required_argument, nullptr, OptBoundary},
        {"attach", required_argument, nullptr, OptAttach},
        {"save-attachments", required_argument, nullptr, OptSave},
        {"content-length", no_argument, nullptr, OptContentLength},
        {"chunk-size", required_argument, nullptr, OptChunkSize},
        {"plain", no_argument, nullptr, OptPlain},
        {"tls", no_argument, nullptr, OptTls},
        {"ca", required_argument, nullptr, OptCa},
        {"ca-path", required_argument, nullptr, OptCaPath},
        {"cert", required_argument, nullptr, OptCert},
        {"key", required_argument, nullptr, OptKey},
        {"server-name", required_argument, nullptr, OptServerName},
        {"min-tls", required_argument, nullptr, OptMinTls},
        {"tls-config", required_argument, nullptr, OptTlsConfig},
        {"insecure", no_argument, nullptr, 'k'},
        {"connect-timeout", required_argument, nullptr, OptConnectTimeout},
        {"timeout", required_argument, nullptr, OptTimeout},
        {"non-blocking", no_argument, nullptr, OptNonBlocking},
        {"blocking", no_argument, nullptr, OptBlocking},
        {"trace", required_argument, nullptr, OptTrace},
        {"repeat", required_argument, nullptr, OptRepeat},
        {"verbose", no_argument, nullptr, 'v'},
        {"quiet", no_argument, nullptr, 'q'},
        {"help", no_argument, nullptr, 'h'},
        {nullptr, 0, nullptr, 0}};

    CallOptions o;
    bool transportGiven = false;
    opterr = 0;
    optind = 1;
    for (;;) {
        const int previous = optind;
        const int c = getopt_long(argc, argv, ":H:kvqh", longOptions, nullptr);
        if (c == -1) break;
        switch (c) {
            case OptAction:
                o.hasAction = true;
                o.action = optarg;
                break;
            case 'H': o.headers.push_back(parseHeader(optarg)); break;
            case OptSoap12: o.soap12 = true; break;
            case OptBoundary:
                if (!MultipartHttpMsg::isValidBoundary(optarg))
                    throw UsageError(std::string("--boundary needs 1 to 70 letters, digits or '()+_,-./:=? and blank "
                                                 "(not last), not '") + optarg + "'");
                o.boundary = optarg;
                break;
            case OptAttach: o.attachments.push_back(parseAttachment(optarg)); break;
            case OptSave:
                if (*optarg == '\0') throw UsageError("--save-attachments needs a folder");
                o.saveDir = optarg;
                break;
            case OptContentLength: o.contentLength = true; break;
            case OptChunkSize: o.chunkSize = parseCount("--chunk-size", optarg, 2); break;
            case OptPlain:
            case OptTls: {
                const Transport t = c == OptPlain ? Transport::Plain : Transport::Tls;
                if (transportGiven && o.transport != t) throw UsageError("--plain and --tls exclude each other");
                transportGiven = true;
                o.transport = t;
                break;
            }
            case OptCa: o.caFile = optarg; break;
            case OptCaPath: o.caPath = optarg; break;
            case OptCert: o.certFile = optarg; break;
            case OptKey: o.keyFile = optarg; break;
            case OptServerName: o.serverName = optarg; break;
            case OptMinTls: {
                const std::string v = optarg;
                if (v == "1.2" || v == "TLS1.2") o.minTls = "TLS1.2";
                else if (v == "1.3" || v == "TLS1.3") o.minTls = "TLS1.3";
                else throw UsageError("--min-tls takes 1.2 or 1.3, not '" + v + "'");
                break;
            }
            case OptTlsConfig:
                if (*optarg == '\0') throw UsageError("--tls-config needs a file name");
                o.tlsConfigFile = optarg;
                break;
            case 'k': o.insecure = true; break;
            case OptConnectTimeout: o.connectTimeout = parseCount("--connect-timeout", optarg, 0); break;
            case OptTimeout: o.timeout = parseCount("--timeout", optarg, 0); break;
            case OptNonBlocking:
                if (o.nonBlocking == 0) throw UsageError("--blocking and --non-blocking exclude each other");
                o.nonBlocking = 1;
                break;
            case OptBlocking:
                if (o.nonBlocking == 1) throw UsageError("--blocking and --non-blocking exclude each other");
                o.nonBlocking = 0;
                break;
            case OptTrace:
                if (*optarg == '\0') throw UsageError("--trace needs a file name");
                o.traceFile = optarg;
                break;
            case OptRepeat: o.repeat = parseCount("--repeat", optarg, 1); break;
            case 'v': o.verbose = true; break;
            case 'q': o.quiet = true; break;
            case 'h': o.help = true; break;
            case ':':
                throw UsageError(std::string("option ") + argv[previous < argc ? previous : argc - 1] +
                                 " needs a value");
            default: {
                const char* text = argv[previous < argc ? previous : argc - 1];
                if (optopt != 0 && (text == nullptr || text[1] != '-'))
                    throw UsageError(std::string("unknown option -") + static_cast<char>(optopt));
                throw UsageError(std::string("unknown option ") + text);
            }
        }
    }
    if (o.help) return o;

    std::vector<std::string> rest(argv + optind, argv + argc);
    if (rest.empty()) throw UsageError("no URL given");
    if (rest.size() > 2) throw UsageError("too many arguments: '" + rest[2] + "'");
    o.url = rest[0];
    if (rest.size() == 2) o.envelopeFile = rest[1];
    if (!startsWithNoCase(o.url, "http://") && !startsWithNoCase(o.url, "https://"))
        throw UsageError("the URL must start with http:// or https://: '" + o.url + "'");
    if (o.url.find_first_of(" \t\r\n") != std::string::npos) throw UsageError("the URL holds a blank");
    if (!o.keyFile.empty() && o.certFile.empty()) throw UsageError("--key needs --cert");
    if (o.contentLength && o.chunkSize != 0) throw UsageError("--chunk-size and --content-length exclude each other");
    const bool tlsOnly = !o.caFile.empty() || !o.caPath.empty() || !o.certFile.empty() || !o.serverName.empty() ||
                         !o.minTls.empty() || !o.tlsConfigFile.empty() || o.insecure;
    if (tlsOnly && !o.useTls())
        throw UsageError("--ca, --ca-path, --cert, --key, --server-name, --min-tls, --tls-config and --insecure need "
                         "TLS (an https:// URL or --tls)");
    return o;
}

const char* helpText() {
    return R"(Usage: talvex-call [options] URL [ENVELOPE-FILE|-]

Sends a SOAP envelope (a file, or standard input when the file is - or left
out) to URL and prints the response envelope, indented, on standard output.

Request:
      --action ACTION      SOAPAction header (quoted for you unless it already
                           is); default "". With SOAP 1.2 the action
                           parameter of the Content-Type
      --soap12             send the envelope as SOAP 1.2 (application/soap+xml);
                           the default for an envelope in the SOAP 1.2 namespace
  -H, --header 'N: V'      extra request header (repeatable). Host comes from
                           the URL; a Host, Content-Type or SOAPAction given
                           here replaces the toolkit's own
      --attach FILE[;type=T][;id=ID]
                           send FILE as an attachment (repeatable); makes a
                           multipart request. Default type from the file name,
                           default id the file's base name
      --boundary B         the multipart boundary (default: a fresh random one
                           for each message)
      --content-length     send the body with a Content-Length instead of
                           chunked (the toolkit then holds it in memory)
      --chunk-size N       bytes per chunk, at least 2 (default 4000)
Response:
      --save-attachments DIR
                           write the response's attachments into DIR (made
                           when missing), named after their file name or id
  -q, --quiet              print nothing on standard output
Connection:
      --plain              plain TCP, whatever the URL's scheme
      --tls                TLS, whatever the URL's scheme
                           (default: http:// plain, https:// TLS)
      --ca FILE            trust the CA certificates in FILE (PEM) instead of
                           the system's
      --ca-path DIR        the same, from a hashed folder (openssl rehash)
      --cert FILE          client certificate (PEM) for servers that ask
      --key FILE           its private key (default: in the --cert file)
      --server-name NAME   name the server's certificate must carry (and SNI)
      --min-tls 1.2|1.3    lowest TLS version (default 1.2)
      --tls-config FILE    a TLS configuration document (sessionConfigDocument)
                           for settings these options do not cover; they are
                           added to it
  -k, --insecure           DO NOT verify the server's certificate (tests only)
      --connect-timeout S  give up connecting, TLS handshake included, after S
                           seconds (default 30; 0: no limit). A refused TCP
                           connect is tried five times, two seconds apart,
                           within that limit; a refused certificate, or a
                           port without TLS, ends it at once
      --timeout S          give up when the whole call (connecting, sending,
                           receiving) takes more than S seconds (default: no
                           limit; Ctrl-C ends the call)
      --non-blocking       non-blocking socket (default with TLS)
      --blocking           blocking socket (default with plain TCP)
      --trace FILE         write every byte sent and received into FILE
      --repeat N           send the request N times on one connection and
                           print each round trip's time on standard error
Other:
  -v, --verbose            request and response status and headers on
                           standard error; error reports with back-trace
  -h, --help               this text

Exit status: 0 success, 2 usage error, 3 connection or TLS failure, 4 HTTP
error status, 5 SOAP Fault, 6 malformed response, 7 time-out or cancelled,
1 anything else.

Example:
  talvex-call --action urn:echo https://localhost:8443/soap request.xml
)";
}
