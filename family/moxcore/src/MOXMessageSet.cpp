#include "moxcore/MOXMessageSet.h"

MOXMessageSet::MOXMessageSet(const MOXMessageSet& other) {
    for (const auto& m : other.m_messages) m_messages.emplace_back(m->clone());
}

MOXMessageSet& MOXMessageSet::operator=(const MOXMessageSet& other) {
    if (this != &other) {
        std::vector<std::unique_ptr<MOXMessageBase>> copy;
        for (const auto& m : other.m_messages) copy.emplace_back(m->clone());
        m_messages.swap(copy);
    }
    return *this;
}

MOXMessageSet::~MOXMessageSet() = default;

void MOXMessageSet::addMessage(const MOXMessageBase& message) { m_messages.emplace_back(message.clone()); }

MOXMessageSet& MOXMessageSet::operator<<(const MOXMessageBase& message) {
    addMessage(message);
    return *this;
}
