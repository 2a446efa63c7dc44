#ifndef MOXCORE_MOXMESSAGESTRING_H
#define MOXCORE_MOXMESSAGESTRING_H

#include "moxcore/MOXMessageBase.h"

// A message made of free text, such as an operating-system error text.
class MOXMessageString : public MOXMessageBase {
public:
    explicit MOXMessageString(const I18NString& text);

    MOXMessageBase* clone() const override;
    const char* getClassName() const override;
    I18NString format() const override;

private:
    I18NString m_text;
};

#endif
