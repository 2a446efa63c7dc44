#include "moxcore/MOXMessageBase.h"

MOXMessageBase::~MOXMessageBase() = default;

I18NString MOXMessageBase::toString() const { return format(); }
