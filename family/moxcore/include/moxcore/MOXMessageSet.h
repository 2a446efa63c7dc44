#ifndef MOXCORE_MOXMESSAGESET_H
#define MOXCORE_MOXMESSAGESET_H

#include <memory>
#include <vector>

#include "moxcore/MOXMessageBase.h"

// An ordered set of messages; each added message is copied (cloned).
class MOXMessageSet {
public:
    MOXMessageSet() = default;
    MOXMessageSet(const MOXMessageSet& other);
    MOXMessageSet& operator=(const MOXMessageSet& other);
    virtual ~MOXMessageSet();

    void addMessage(const MOXMessageBase& message);
    MOXMessageSet& operator<<(const MOXMessageBase& message);

    size_t getMessageCount() const { return m_messages.size(); }
    const MOXMessageBase& getMessageAt(size_t index) const { return *m_messages.at(index); }

private:
    std::vector<std::unique_ptr<MOXMessageBase>> m_messages;
};

#endif
