#include "talvex/TALVEXMessageReader.h"

TALVEXMessageReader::TALVEXMessageReader(int request) : isRequest(request) {}

TALVEXMessageReader::TALVEXMessageReader() : isRequest(0) {}

TALVEXMessageReader::~TALVEXMessageReader() {}
