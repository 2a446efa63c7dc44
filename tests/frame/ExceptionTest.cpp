#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "frame/TALVEXRaise.h"
#include "talvex/talvex.h"

static const char MOX_UNIT[] = "ExceptionTest";

// The toolkit's error: code to catalog message, where it was raised, and the report.
TEST(Exception, RaisedErrorsCarryCodeMessagesTraceAndReport) {
    try {
        TALVEXException::ThrowNotImplemented("TALVEXSession::doRequest");
        FAIL() << "ThrowNotImplemented returned";
    } catch (MOXMessageSet& set) {
        auto& e = dynamic_cast<TALVEXException&>(set);
        EXPECT_EQ(0, e.getCode());
        EXPECT_EQ(1, e.getSeverity());
        ASSERT_EQ(1u, e.getMessageCount());
        auto* m = dynamic_cast<const MOXMessage*>(&e.getMessageAt(0));
        ASSERT_NE(nullptr, m);
        EXPECT_EQ(0xF2A8781Au, m->getNumber());
        EXPECT_EQ("talvexmsgs", m->getMsgFile().str());
        ASSERT_EQ(1u, e.getBackTrace().size());
        const MOXThrowable::TraceEntry& t = e.getBackTrace()[0];
        EXPECT_EQ("TALVEXException:20 TALVEXSession::doRequest MOX_THROW",
                  t.unit + ":" + std::to_string(t.line) + " " + t.function + " " + t.kind);
    }
    try {
        TALVEX_RAISE_DETAIL_AT(321, "TALVEXSocketNonSSL::ReadBuffer", ErrSocket, TALVEXMessage(0xF2A16A58),
                               I18NString("Connection reset by peer"));
    } catch (MOXException& base) {
        auto& e = dynamic_cast<TALVEXException&>(base);
        EXPECT_EQ(5, e.getCode());
        ASSERT_EQ(2u, e.getMessageCount());
        EXPECT_EQ("Connection reset by peer", e.getMessageAt(1).format().str());
        const std::string report = e.toString().str();
        for (const char* part : {"TALVEXException code 5", "A socket operation failed.", "Connection reset by peer",
                                 "ExceptionTest:321 TALVEXSocketNonSSL::ReadBuffer [MOX_THROW]"})
            EXPECT_NE(std::string::npos, report.find(part)) << part << " missing in " << report;
        std::unique_ptr<MOXThrowable> c(e.clone());
        auto* copy = dynamic_cast<TALVEXException*>(c.get());
        ASSERT_NE(nullptr, copy);
        EXPECT_EQ(5, copy->getCode());
        EXPECT_EQ(2u, copy->getMessageCount());
        EXPECT_EQ(1u, copy->getBackTrace().size());
        TALVEXException& alias = *copy;
        *copy = alias;
        EXPECT_EQ(2u, copy->getMessageCount()) << "self-assignment changes nothing";
    }
    const TALVEXException original(1, TALVEXException::ErrUrl);
    try {
        TALVEXException(original).hurl(MOX_AT(7), "f", "MOX_THROW");
    } catch (MOXThrowable& x) {
        EXPECT_EQ(30, dynamic_cast<TALVEXException&>(x).getCode());
        EXPECT_EQ("f", x.getBackTrace().back().function);
    }
    EXPECT_EQ(0u, original.getBackTrace().size()) << "hurl throws a copy";
}

TEST(Exception, CatalogTextsTakeTheirParametersInOrder) {
    TALVEXMessage url(0xF2A26477);
    url << MOXMessageParm(I18NString("host:80")) << MOXMessageParm(I18NString("no ://"));
    TALVEXMessage parse(0xF2AB0DAF);
    parse << MOXMessageParm(3, MOX_PARM_DECIMAL) << MOXMessageParm(14, MOX_PARM_DECIMAL)
          << MOXMessageParm(5, MOX_PARM_DECIMAL);
    TALVEXMessage secure(0xF2A4DB68);
    secure << MOXMessageParm(I18NString("10.0.0.1")) << MOXMessageParm(443, MOX_PARM_DECIMAL);
    const std::pair<TALVEXMessage*, const char*> rows[] = {
        {&url, "The URL \"host:80\" cannot be used (no ://)."},
        {&parse, "The SOAP envelope could not be parsed: error 5 at line 3, column 14."},
        {&secure, "Setting up the secure connection to 10.0.0.1, port 443, failed."}};
    for (const auto& r : rows) EXPECT_EQ(r.second, r.first->format().str());
    for (unsigned id : {0xF2A8781A, 0xF2A4DB68, 0xF2A16A58, 0xF2AD7BA3, 0xF2A987E8, 0xF2A260D2, 0xF2AD7530,
                        0xF2A503ED, 0xF2A4A8F1, 0xF2A23B5F, 0xF2A4A974, 0xF2A728B0, 0xF2AD19C2, 0xF2AB0DAF,
                        0xF2AC10DF, 0xF2A3D9EB, 0xF2A5DBAD, 0xF2ADBF2A, 0xF2AEC365, 0xF2A94CAC, 0xF2A21E8E,
                        0xF2A26477, 0xF2AF1B68, 0xF2AB213D})
        EXPECT_EQ(std::string::npos, TALVEXMessage(id).format().str().find("no text in catalog")) << std::hex << id;
}
