#include "talvex/TALVEXSession.h"

#include "talvex/TALVEXException.h"

TALVEXSession::TALVEXSession() {}

TALVEXSession::~TALVEXSession() {}

void TALVEXSession::setProperty(const std::string&, int) { TALVEXException::ThrowNotImplemented("TALVEXSession::setProperty"); }

void TALVEXSession::setProperty(const std::string&, const std::string&) {
    TALVEXException::ThrowNotImplemented("TALVEXSession::setProperty");
}

void TALVEXSession::echo(const char*) { TALVEXException::ThrowNotImplemented("TALVEXSession::echo(1)"); }

void TALVEXSession::echo(const char*, const char*) { TALVEXException::ThrowNotImplemented("TALVEXSession::echo(2)"); }

void TALVEXSession::doRequest(MOXIDOM_Element&, MOXIDOM_Node&) {
    TALVEXException::ThrowNotImplemented("TALVEXSession::doRequest");
}

void TALVEXSession::sendRequest(MOXIDOM_Element&) { TALVEXException::ThrowNotImplemented("TALVEXSession::sendRequest"); }

void TALVEXSession::getResponse(MOXIDOM_Node&) { TALVEXException::ThrowNotImplemented("TALVEXSession::getResponse"); }

TALVEXMessageWriter& TALVEXSession::openRequest(int) {
    TALVEXException::ThrowNotImplemented("TALVEXSession::openRequest");
}

void TALVEXSession::closeRequest(TALVEXMessageWriter&) {
    TALVEXException::ThrowNotImplemented("TALVEXSession::closeRequest");
}

TALVEXMessageReader& TALVEXSession::openResponse() { TALVEXException::ThrowNotImplemented("TALVEXSession::openResponse"); }

void TALVEXSession::closeResponse(TALVEXMessageReader&) {
    TALVEXException::ThrowNotImplemented("TALVEXSession::closeResponse");
}
