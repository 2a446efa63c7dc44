#ifndef MOXCORE_MOXMESSAGECOMPONENTS_H
#define MOXCORE_MOXMESSAGECOMPONENTS_H

#include <vector>

#include "moxcore/MOXMessageBase.h"
#include "moxcore/MOXMessageParm.h"

// A message with an ordered list of parameters.
class MOXMessageComponents : public MOXMessageBase {
public:
    // Appends a parameter; parameters are substituted in the order appended.
    MOXMessageComponents& operator<<(const MOXMessageParm& parm);

    const std::vector<MOXMessageParm>& getParameters() const { return m_parms; }

private:
    std::vector<MOXMessageParm> m_parms;
};

#endif
