#include "frame/TALVEXRaise.h"

void talvexRaise(const MOXFileLocation& location, const char* function, TALVEXException::talvexErrorCode code,
                 const MOXMessageBase& message) {
    TALVEXException e(MOX_SEVERITY_ERROR, code);
    e << message;
    e.hurl(location, function, "MOX_THROW");
}

void talvexRaise(const MOXFileLocation& location, const char* function, TALVEXException::talvexErrorCode code,
                 const MOXMessageBase& message, const I18NString& detail) {
    TALVEXException e(MOX_SEVERITY_ERROR, code);
    e << message << MOXMessageString(detail);
    e.hurl(location, function, "MOX_THROW");
}
