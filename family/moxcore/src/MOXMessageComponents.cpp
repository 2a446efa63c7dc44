#include "moxcore/MOXMessageComponents.h"

MOXMessageComponents& MOXMessageComponents::operator<<(const MOXMessageParm& parm) {
    m_parms.push_back(parm);
    return *this;
}
