#include <gtest/gtest.h>

#include <string>

#include "frame/TALVEXRaise.h"
#include "talvex/talvex.h"

static const char MOX_UNIT[] = "ExceptionTest";

namespace {
// Every message number of the toolkit must have a catalog text.
const unsigned kAllMessages[] = {0xF2A8781A, 0xF2A4DB68, 0xF2A16A58, 0xF2AD7BA3, 0xF2A987E8, 0xF2A260D2,
                                 0xF2AD7530, 0xF2A503ED, 0xF2A4A8F1, 0xF2A23B5F, 0xF2A4A974, 0xF2A728B0,
                                 0xF2AD19C2, 0xF2AB0DAF, 0xF2AC10DF, 0xF2A3D9EB, 0xF2A5DBAD, 0xF2ADBF2A,
                                 0xF2AEC365, 0xF2A94CAC, 0xF2A21E8E, 0xF2A26477, 0xF2AF1B68, 0xF2AB213D};
}  // namespace

TEST(Exception, NotImplementedCarriesCodeMessageFunctionAndFixedLocation) {
    try {
        TALVEXException::ThrowNotImplemented("TALVEXSession::doRequest");
        FAIL() << "ThrowNotImplemented returned";
    } catch (TALVEXException& e) {
        EXPECT_EQ(0, e.getCode());
        EXPECT_EQ(1, e.getSeverity());
        ASSERT_EQ(1u, e.getMessageCount());
        // Messages are kept as copies made by the inherited clone: a MOXMessage of the catalog.
        auto* m = dynamic_cast<const MOXMessage*>(&e.getMessageAt(0));
        ASSERT_NE(nullptr, m);
        EXPECT_EQ(0xF2A8781Au, m->getNumber());
        EXPECT_EQ("talvexmsgs", m->getMsgFile().str());
        ASSERT_EQ(1u, e.getBackTrace().size());
        EXPECT_EQ("TALVEXException", e.getBackTrace()[0].unit);
        EXPECT_EQ(20, e.getBackTrace()[0].line);
        EXPECT_EQ("TALVEXSession::doRequest", e.getBackTrace()[0].function);
        EXPECT_EQ("MOX_THROW", e.getBackTrace()[0].kind);
    }
}

TEST(Exception, HurlIsCatchableThroughEveryBase) {
    const TALVEXException e(1, TALVEXException::ErrUrl);
    auto raise = [&e] {
        TALVEXException copy(e);
        copy.hurl(MOX_AT(7), "f", "MOX_THROW");
    };
    try { raise(); } catch (TALVEXException& x) { EXPECT_EQ("f", x.getBackTrace().back().function); }
    try { raise(); } catch (MOXException& x) { EXPECT_EQ(30, x.getCode()); }
    try { raise(); } catch (MOXThrowable& x) { EXPECT_STREQ("TALVEXException", x.getThrowableName()); }
    try { raise(); } catch (MOXMessageSet& x) { EXPECT_EQ(0u, x.getMessageCount()); }
    EXPECT_EQ(0u, e.getBackTrace().size()) << "hurl throws a copy; the original keeps its trace";
}

TEST(Exception, CloneKeepsNameCodeMessagesAndTrace) {
    TALVEXException e(1, TALVEXException::ErrHostNotResolved);
    e << (TALVEXMessage(0xF2AB213D) << MOXMessageParm(I18NString("nohost.invalid")));
    e.addBackTrace(MOX_AT(107), "TALVEX::getSession", "MOX_THROW");
    MOXThrowable* c = e.clone();
    EXPECT_STREQ("TALVEXException", c->getThrowableName());
    auto* t = dynamic_cast<TALVEXException*>(c);
    ASSERT_NE(nullptr, t);
    EXPECT_EQ(33, t->getCode());
    EXPECT_EQ(1u, t->getMessageCount());
    EXPECT_EQ(1u, t->getBackTrace().size());
    delete c;
}

TEST(Exception, SelfAssignmentChangesNothing) {
    TALVEXException e(1, TALVEXException::ErrSocket);
    e << MOXMessageString(I18NString("x"));
    TALVEXException& alias = e;
    e = alias;
    EXPECT_EQ(1u, e.getMessageCount());
    EXPECT_EQ(5, e.getCode());
}

TEST(Exception, RaiseHelperBuildsTheWholeErrorInOneLine) {
    try {
        TALVEX_RAISE_DETAIL_AT(321, "TALVEXSocketNonSSL::ReadBuffer", ErrSocket, TALVEXMessage(0xF2A16A58),
                               I18NString("Connection reset by peer"));
    } catch (TALVEXException& e) {
        EXPECT_EQ(5, e.getCode());
        ASSERT_EQ(2u, e.getMessageCount());
        EXPECT_EQ("Connection reset by peer", e.getMessageAt(1).format().str());
        EXPECT_EQ("ExceptionTest", e.getBackTrace().at(0).unit);
        EXPECT_EQ(321, e.getBackTrace().at(0).line);
        std::string report = e.toString().str();
        EXPECT_NE(std::string::npos, report.find("TALVEXException code 5")) << report;
        EXPECT_NE(std::string::npos, report.find("A socket operation failed.")) << report;
        EXPECT_NE(std::string::npos, report.find("Connection reset by peer")) << report;
        EXPECT_NE(std::string::npos, report.find("ExceptionTest:321 TALVEXSocketNonSSL::ReadBuffer [MOX_THROW]"))
            << report;
        return;
    }
    FAIL();
}

TEST(Exception, EveryMessageNumberHasACatalogText) {
    for (unsigned id : kAllMessages) {
        std::string text = TALVEXMessage(id).format().str();
        EXPECT_EQ(std::string::npos, text.find("no text in catalog")) << std::hex << id;
    }
}

TEST(Exception, CatalogTextsTakeTheirParametersInOrder) {
    TALVEXMessage url(0xF2A26477);
    url << MOXMessageParm(I18NString("host:80")) << MOXMessageParm(I18NString("no ://"));
    EXPECT_EQ("The URL \"host:80\" cannot be used (no ://).", url.format().str());
    TALVEXMessage parse(0xF2AB0DAF);
    parse << MOXMessageParm(3, MOX_PARM_DECIMAL) << MOXMessageParm(14, MOX_PARM_DECIMAL)
          << MOXMessageParm(5, MOX_PARM_DECIMAL);
    EXPECT_EQ("The SOAP envelope could not be parsed: error 5 at line 3, column 14.", parse.format().str());
    TALVEXMessage secure(0xF2A4DB68);
    secure << MOXMessageParm(I18NString("10.0.0.1")) << MOXMessageParm(443, MOX_PARM_DECIMAL);
    EXPECT_EQ("Setting up the secure connection to 10.0.0.1, port 443, failed.", secure.format().str());
}
