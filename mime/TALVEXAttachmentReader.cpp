#include "talvex/TALVEXAttachmentReader.h"

TALVEXAttachmentReader::TALVEXAttachmentReader() {}

TALVEXAttachmentReader::~TALVEXAttachmentReader() {}
