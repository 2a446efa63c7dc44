#ifndef TALVEX_TALVEX_UMBRELLA_H
#define TALVEX_TALVEX_UMBRELLA_H

// The whole exported interface of the toolkit.

#include "talvex/PNXOutputStream.h"
#include "talvex/TALVEX.h"
#include "talvex/TALVEXException.h"
#include "talvex/TALVEXExport.h"
#include "talvex/TALVEXMessage.h"

#endif
