#ifndef MOXCORE_MOXCORE_H
#define MOXCORE_MOXCORE_H

// The core library: throwables, messages, byte buffers, texts, locks, timers.

#include "moxcore/I18NString.h"
#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXErrors.h"
#include "moxcore/MOXException.h"
#include "moxcore/MOXFileLocation.h"
#include "moxcore/MOXFmDir.h"
#include "moxcore/MOXMessage.h"
#include "moxcore/MOXMessageBase.h"
#include "moxcore/MOXMessageCatalog.h"
#include "moxcore/MOXMessageComponents.h"
#include "moxcore/MOXMessageParm.h"
#include "moxcore/MOXMessageSet.h"
#include "moxcore/MOXMessageString.h"
#include "moxcore/MOXThread.h"
#include "moxcore/MOXThreadCriticalSection.h"
#include "moxcore/MOXThreadGuard.h"
#include "moxcore/MOXThrowable.h"
#include "moxcore/MOXUtConvert.h"
#include "moxcore/MOXUtSystemInfo.h"
#include "moxcore/MOXUtTimer.h"

// Starts and stops the core library for a client library named `client`.
// Calls nest: each moxInitialize is matched by one moxTerminate.
// moxInitialize returns 0; moxTerminate returns 0, or 1 when the client was
// not initialised (more terminations than initialisations).
long moxInitialize(const char* client);
long moxTerminate(const char* client);
// Number of outstanding initialisations (0 when the core library is down).
int moxInitializeCount();

#endif
