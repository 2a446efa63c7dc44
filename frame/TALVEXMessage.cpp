#include "talvex/TALVEXMessage.h"

#include <mutex>

#include "moxcore/MOXMessageCatalog.h"

namespace {
// The English texts of the catalog "talvexmsgs". "%n" is the n-th parameter;
// "%[ ... %]" is left out when its parameter is missing.
const MOXCatalogEntry kTalvexMessages[] = {
    {0xF2A8781A, "The operation is not implemented by this class."},
    {0xF2A4DB68, "Setting up the secure connection to %1, port %2, failed%[ (security library status %3)%]."},
    {0xF2A16A58, "A socket operation failed."},
    {0xF2AD7BA3, "The connection ended before the HTTP head was complete."},
    {0xF2A987E8, "The HTTP request is not a POST request."},
    {0xF2A260D2, "The HTTP version is neither HTTP/1.1 nor HTTP/1.0."},
    {0xF2AD7530, "The HTTP request line has fewer than three parts."},
    {0xF2A503ED, "The HTTP status line has fewer than two parts."},
    {0xF2A4A8F1, "A Content-Type header has no value."},
    {0xF2A23B5F, "A multipart Content-Type header has no usable boundary (1 to 70 characters)."},
    {0xF2A4A974, "A Content-ID header has no value."},
    {0xF2A728B0, "A Content-Length header has no value."},
    {0xF2AD19C2, "A Transfer-Encoding header has no value."},
    {0xF2AB0DAF, "The SOAP envelope could not be parsed: error %3 at line %1, column %2."},
    {0xF2AC10DF, "The SOAP envelope document has no content."},
    {0xF2A3D9EB, "A DOM error (code %1) occurred while handing over the SOAP envelope."},
    {0xF2A5DBAD, "There is no further attachment: the last part of the multipart message was already read."},
    {0xF2ADBF2A, "The multipart body ended before its closing delimiter."},
    {0xF2AEC365, "Malformed quoted-printable data: \"%1\" at position %2 is not \"=\" followed by two hexadecimal digits."},
    {0xF2A94CAC, "Malformed quoted-printable data: byte %1 at position %2 follows \"=\" and blanks but is not a line end."},
    {0xF2A21E8E, "The attachment's transfer encoding \"%1\" is not supported; only binary, 7bit, 8bit and quoted-printable are read."},
    {0xF2A26477, "The URL \"%1\" cannot be used (%2)."},
    {0xF2AF1B68, "The secure connection to %1 was refused during set-up (security library status %2)."},
    {0xF2AB213D, "The host name \"%1\" could not be resolved."},
};

void registerTalvexCatalog() {
    static std::once_flag once;
    std::call_once(once, [] {
        MOXMessageCatalog::registerCatalog("talvexmsgs", kTalvexMessages,
                                           sizeof kTalvexMessages / sizeof kTalvexMessages[0]);
    });
}
}  // namespace

TALVEXMessage::TALVEXMessage(unsigned id) : MOXMessage(I18NString("talvexmsgs"), id) { registerTalvexCatalog(); }

TALVEXMessage::~TALVEXMessage() = default;
