#include "talvex/TALVEXMessageWriter.h"

#include <cstring>

TALVEXMessageWriter::TALVEXMessageWriter() : TALVEXMessageWriter(0, 0) {}

TALVEXMessageWriter::TALVEXMessageWriter(int isRequest, int hasAttachments)
    : m_is_request(isRequest), m_has_attachments(hasAttachments), m_status_line_sent(0), m_status(200) {
    std::strcpy(m_reason, "OK");
}

TALVEXMessageWriter::~TALVEXMessageWriter() {}
