#include "moxcore/MOXMessageParm.h"

#include <string>

MOXMessageParm::MOXMessageParm(const I18NString& text) : m_text(text), m_is_number(false), m_number(0) {}

MOXMessageParm::MOXMessageParm(int value, MOXMsgParm)
    : m_text(std::to_string(value).c_str()), m_is_number(true), m_number(value) {}
