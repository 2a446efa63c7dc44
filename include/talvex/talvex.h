#ifndef TALVEX_TALVEX_UMBRELLA_H
#define TALVEX_TALVEX_UMBRELLA_H

/// @file talvex.h
/// The whole exported interface of the toolkit.
///
/// @mainpage TALVEX
/// A SOAP client toolkit: TALVEX makes sessions (TALVEXSession) on plain or TLS
/// sockets (TALVEXSocket); a session writes requests (TALVEXMessageWriter) and
/// reads responses (TALVEXMessageReader, TALVEXAttachmentReader). Errors are
/// TALVEXException or the core library's errors. The guides are in docs/ of the
/// source tree: user-guide.md, errors.md, design-decisions.md.

#include "talvex/PNXOutputStream.h"
#include "talvex/TALVEX.h"
#include "talvex/TALVEXAttachmentReader.h"
#include "talvex/TALVEXException.h"
#include "talvex/TALVEXExport.h"
#include "talvex/TALVEXHost.h"
#include "talvex/TALVEXHostID.h"
#include "talvex/TALVEXLimits.h"
#include "talvex/TALVEXMessage.h"
#include "talvex/TALVEXMessageReader.h"
#include "talvex/TALVEXMessageWriter.h"
#include "talvex/TALVEXSession.h"
#include "talvex/TALVEXSocket.h"
#include "talvex/TALVEXSocketInputStream.h"

#endif
