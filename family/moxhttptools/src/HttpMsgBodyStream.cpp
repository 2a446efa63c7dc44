#include "moxhttptools/HttpMsgBodyStream.h"

#include "moxhttptools/OnePieceHttpMsg.h"

void HttpMsgBodyStream::write(const char* data, unsigned int length) { m_owner.writeBody(data, length); }
