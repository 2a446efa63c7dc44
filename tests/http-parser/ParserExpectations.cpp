#include "ParserExpectations.h"

#include "moxcore/MOXByteBuffer.h"
#include "moxcore/MOXErrors.h"
#include "moxcore/MOXMessage.h"
#include "moxcore/MOXMessageString.h"
#include "moxhttptools/HTTPHeader.h"
#include "talvex/TALVEXException.h"

::testing::AssertionResult raisesParserError(const std::function<void()>& action, int code, unsigned message,
                                             const char* function, const char* detail) {
    try {
        action();
    } catch (TALVEXException& e) {
        auto fail = [&e]() { return ::testing::AssertionFailure() << "code " << e.getCode() << ": "; };
        if (e.getCode() != code) return fail() << "expected code " << code;
        if (e.getSeverity() != 1) return fail() << "severity " << e.getSeverity();
        const size_t expectedCount = detail != nullptr ? 2u : 1u;
        if (e.getMessageCount() != expectedCount) return fail() << e.getMessageCount() << " messages";
        auto* m = dynamic_cast<const MOXMessage*>(&e.getMessageAt(0));
        if (m == nullptr) return fail() << "first message is not a catalog message";
        if (m->getNumber() != message)
            return fail() << std::hex << "message 0x" << m->getNumber() << ", expected 0x" << message;
        if (m->getMsgFile().str() != "talvexmsgs") return fail() << "message file " << m->getMsgFile().str();
        if (!m->getParameters().empty()) return fail() << "catalog message has parameters";
        if (detail != nullptr) {
            auto* s = dynamic_cast<const MOXMessageString*>(&e.getMessageAt(1));
            if (s == nullptr) return fail() << "second message is not a plain message string";
            if (s->format().str() != detail)
                return fail() << "added text \"" << s->format().str() << "\", expected \"" << detail << "\"";
        }
        if (e.getBackTrace().size() != 1u) return fail() << e.getBackTrace().size() << " trace entries";
        const MOXThrowable::TraceEntry& t = e.getBackTrace()[0];
        if (t.unit != "TALVEXHTTPParser") return fail() << "unit " << t.unit;
        if (!t.hasFunction || t.function != function) return fail() << "function " << t.function;
        if (t.kind != "MOX_THROW") return fail() << "kind " << t.kind;
        if (t.line <= 0) return fail() << "line " << t.line;
        return ::testing::AssertionSuccess();
    } catch (MOXThrowable& t) {
        return ::testing::AssertionFailure() << "raised " << t.getThrowableName() << ": " << t.toString().str();
    } catch (...) {
        return ::testing::AssertionFailure() << "raised something that is not a core throwable";
    }
    return ::testing::AssertionFailure() << "nothing was raised";
}

::testing::AssertionResult raisesAssertion(const std::function<void()>& action, const char* text) {
    try {
        action();
    } catch (MOXAssertError& e) {
        if (e.getText() == nullptr || std::string(e.getText()) != text)
            return ::testing::AssertionFailure() << "assertion text " << (e.getText() ? e.getText() : "(null)");
        if (e.getBackTrace().empty() || e.getBackTrace()[0].unit != "TALVEXHTTPParser")
            return ::testing::AssertionFailure() << "not raised at TALVEXHTTPParser";
        return ::testing::AssertionSuccess();
    } catch (...) {
        return ::testing::AssertionFailure() << "raised something else";
    }
    return ::testing::AssertionFailure() << "nothing was raised";
}

std::string dumpOf(const char* valueText) {
    HTTPHeader h;
    h.parse(valueText);
    MOXByteBuffer b(40, 256);
    h.dump(b);
    return std::string(b.str(), b.pcount());
}
