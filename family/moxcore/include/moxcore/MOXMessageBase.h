#ifndef MOXCORE_MOXMESSAGEBASE_H
#define MOXCORE_MOXMESSAGEBASE_H

#include "moxcore/I18NString.h"

// The root of all messages that a throwable carries.
class MOXMessageBase {
public:
    MOXMessageBase() = default;
    MOXMessageBase(const MOXMessageBase&) = default;
    MOXMessageBase& operator=(const MOXMessageBase&) = default;
    virtual ~MOXMessageBase();

    virtual MOXMessageBase* clone() const = 0;
    virtual const char* getClassName() const = 0;
    // The message text with its parameters filled in.
    virtual I18NString format() const = 0;
    // The text as shown in an error report (catalog messages name their number).
    virtual I18NString toString() const;
    virtual int getSeverity() const { return m_severity; }
    virtual void setSeverity(int severity) { m_severity = severity; }
    virtual const I18NString& getMsgFile() const { return m_msg_file; }
    virtual void setMsgFile(const I18NString& file) { m_msg_file = file; }

private:
    int m_severity = 1;
    I18NString m_msg_file;
};

#endif
