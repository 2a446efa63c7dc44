#ifndef MOXCORE_MOXMESSAGEPARM_H
#define MOXCORE_MOXMESSAGEPARM_H

#include "moxcore/I18NString.h"

// The kind of a numeric message parameter. Only the decimal kind is used.
typedef int MOXMsgParm;
enum { MOX_PARM_DECIMAL = 2 };

// One parameter of a catalog message: a text, or a number of a given kind.
class MOXMessageParm {
public:
    explicit MOXMessageParm(const I18NString& text);
    MOXMessageParm(int value, MOXMsgParm kind);

    // The parameter as it appears in a formatted message.
    const I18NString& getText() const { return m_text; }
    bool isNumber() const { return m_is_number; }
    int getNumber() const { return m_number; }

private:
    I18NString m_text;
    bool m_is_number;
    int m_number;
};

#endif
