#include "moxcore/MOXMessageString.h"

MOXMessageString::MOXMessageString(const I18NString& text) : m_text(text) {}

MOXMessageBase* MOXMessageString::clone() const { return new MOXMessageString(*this); }

const char* MOXMessageString::getClassName() const { return "MOXMessageString"; }

I18NString MOXMessageString::format() const { return m_text; }
