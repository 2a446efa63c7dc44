#ifndef TALVEX_TESTS_CAUGHTFAILURE_H
#define TALVEX_TESTS_CAUGHTFAILURE_H

// What a failing call raised, taken apart for assertions: the throwable's
// name, its back-trace, the core error's text or the toolkit error's code,
// its catalog messages with their parameters and its free-text messages.

#include <functional>
#include <string>
#include <vector>

#include "moxcore/MOXErrors.h"
#include "moxcore/MOXException.h"
#include "moxcore/MOXMessage.h"
#include "moxcore/MOXMessageComponents.h"
#include "moxcore/MOXThrowable.h"

class CaughtFailure {
public:
    struct Message {
        unsigned number = 0;  // 0 for a free-text message
        std::vector<std::string> parameters;
        std::string text;  // the free text, or the formatted catalog message
    };

    // Runs the call; thrown() is false when it returned normally.
    static CaughtFailure from(const std::function<void()>& call) {
        CaughtFailure f;
        try {
            call();
        } catch (MOXThrowable& t) {
            f.m_thrown = true;
            f.m_name = t.getThrowableName();
            f.m_trace = t.getBackTrace();
            if (auto* e = dynamic_cast<MOXError*>(&t)) {
                f.m_has_text = e->getText() != nullptr;
                f.m_text = f.m_has_text ? e->getText() : "";
            }
            if (auto* e = dynamic_cast<MOXException*>(&t)) {
                f.m_code = e->getCode();
                for (size_t i = 0; i < e->getMessageCount(); ++i) {
                    const MOXMessageBase& base = e->getMessageAt(i);
                    Message m;
                    m.text = base.format().str();
                    if (auto* catalog = dynamic_cast<const MOXMessage*>(&base)) m.number = catalog->getNumber();
                    if (auto* parts = dynamic_cast<const MOXMessageComponents*>(&base))
                        for (const MOXMessageParm& p : parts->getParameters()) m.parameters.push_back(p.getText().str());
                    f.m_messages.push_back(m);
                }
            }
        } catch (std::exception& e) {
            f.m_thrown = true;
            f.m_name = std::string("std::exception: ") + e.what();
        } catch (...) {
            f.m_thrown = true;
            f.m_name = "<not a throwable>";
        }
        return f;
    }

    bool thrown() const { return m_thrown; }
    const std::string& name() const { return m_name; }
    int code() const { return m_code; }
    bool hasText() const { return m_has_text; }
    const std::string& text() const { return m_text; }
    const std::vector<MOXThrowable::TraceEntry>& trace() const { return m_trace; }
    const std::vector<Message>& messages() const { return m_messages; }

    // The first back-trace entry: where the failure was raised.
    MOXThrowable::TraceEntry origin() const {
        return m_trace.empty() ? MOXThrowable::TraceEntry{"<none>", 0, false, "", ""} : m_trace.front();
    }
    // How many back-trace entries name this function.
    int entriesOf(const std::string& function) const {
        int n = 0;
        for (const auto& e : m_trace)
            if (e.hasFunction && e.function == function) ++n;
        return n;
    }
    // One line per entry, for failure output.
    std::string describeTrace() const {
        std::string out;
        for (const auto& e : m_trace)
            out += e.unit + ":" + std::to_string(e.line) + " " + (e.hasFunction ? e.function : "<null>") + " " +
                   e.kind + "\n";
        return out;
    }

private:
    bool m_thrown = false;
    std::string m_name = "<nothing thrown>";
    int m_code = -1;
    bool m_has_text = false;
    std::string m_text;
    std::vector<MOXThrowable::TraceEntry> m_trace;
    std::vector<Message> m_messages;
};

#endif
