#ifndef MOXCORE_MOXMESSAGE_H
#define MOXCORE_MOXMESSAGE_H

#include "moxcore/MOXMessageComponents.h"

// A numbered entry of a message catalog (the message file), with parameters.
// The text comes from the catalog registered under the file's name
// (see MOXMessageCatalog); "%1" to "%9" in it stand for the parameters, and
// "%[ ... %]" encloses a piece that is dropped when a parameter it names is missing.
class MOXMessage : public MOXMessageComponents {
public:
    MOXMessage(const I18NString& messageFile, unsigned number);
    ~MOXMessage() override;

    MOXMessageBase* clone() const override;
    const char* getClassName() const override;
    I18NString format() const override;
    // "<file> 0x<number>: <text>"
    I18NString toString() const override;

    unsigned getNumber() const { return m_number; }

private:
    unsigned m_number;
};

#endif
