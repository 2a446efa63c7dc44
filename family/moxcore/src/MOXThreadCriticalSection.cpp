#include "moxcore/MOXThreadCriticalSection.h"

MOXThreadCriticalSection::MOXThreadCriticalSection(int) {}
