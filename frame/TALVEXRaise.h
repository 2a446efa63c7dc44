#ifndef TALVEX_FRAME_TALVEXRAISE_H
#define TALVEX_FRAME_TALVEXRAISE_H

// Raising a toolkit error in one line:
//   TALVEX_RAISE_AT(107, "TALVEX::getSession", ErrHostNotResolved,
//                   TALVEXMessage(0xF2AB213D) << MOXMessageParm(I18NString(host)));
// and with a free-text message after the catalog message:
//   TALVEX_RAISE_DETAIL_AT(__LINE__, "TALVEXSocketNonSSL::ReadBuffer", ErrSocket,
//                          TALVEXMessage(0xF2A16A58), m_last_error_text);

#include "moxcore/I18NString.h"
#include "moxcore/MOXMessageParm.h"
#include "moxcore/MOXMessageString.h"
#include "moxcore/MOXThrow.h"
#include "talvex/TALVEXException.h"
#include "talvex/TALVEXMessage.h"

[[noreturn]] void talvexRaise(const MOXFileLocation& location, const char* function,
                              TALVEXException::talvexErrorCode code, const MOXMessageBase& message);
[[noreturn]] void talvexRaise(const MOXFileLocation& location, const char* function,
                              TALVEXException::talvexErrorCode code, const MOXMessageBase& message,
                              const I18NString& detail);

#define TALVEX_RAISE_AT(line, function, code, message) \
    ::talvexRaise(MOX_AT(line), (function), TALVEXException::code, (message))
#define TALVEX_RAISE_DETAIL_AT(line, function, code, message, detail) \
    ::talvexRaise(MOX_AT(line), (function), TALVEXException::code, (message), (detail))

#endif
