#ifndef TALVEX_TALVEXMESSAGE_H
#define TALVEX_TALVEXMESSAGE_H

#include "moxcore/MOXMessage.h"
#include "talvex/TALVEXExport.h"

/// A numbered message of the toolkit's catalog "talvexmsgs". Parameters are
/// appended in order with operator<< (MOXMessageParm).
class TALVEX_API TALVEXMessage : public MOXMessage {
public:
    explicit TALVEXMessage(unsigned id);
    ~TALVEXMessage() override;
};

#endif
