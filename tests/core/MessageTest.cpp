#include <gtest/gtest.h>

#include "moxcore/MOXCore.h"

namespace {
const MOXCatalogEntry kEntries[] = {
    {0x10, "Host \"%1\" on port %2 failed%[ (status %3)%]."},
    {0x11, "100%% done, no parameters"},
};

struct CatalogFixture : ::testing::Test {
    void SetUp() override { MOXMessageCatalog::registerCatalog("testmsgs", kEntries, 2); }
};
}  // namespace

TEST_F(CatalogFixture, ParametersAreSubstitutedInOrder) {
    MOXMessage m(I18NString("testmsgs"), 0x10);
    m << MOXMessageParm(I18NString("example.org")) << MOXMessageParm(443, MOX_PARM_DECIMAL)
      << MOXMessageParm(-23, MOX_PARM_DECIMAL);
    EXPECT_EQ("Host \"example.org\" on port 443 failed (status -23).", m.format().str());
    EXPECT_EQ("testmsgs 0x00000010: Host \"example.org\" on port 443 failed (status -23).", m.toString().str());
}

TEST_F(CatalogFixture, OptionalPieceIsDroppedWhenItsParameterIsMissing) {
    MOXMessage m(I18NString("testmsgs"), 0x10);
    m << MOXMessageParm(I18NString("h")) << MOXMessageParm(1, MOX_PARM_DECIMAL);
    EXPECT_EQ("Host \"h\" on port 1 failed.", m.format().str());
}

TEST_F(CatalogFixture, PercentEscapeAndUnknownNumber) {
    EXPECT_EQ("100% done, no parameters", MOXMessage(I18NString("testmsgs"), 0x11).format().str());
    MOXMessage unknown(I18NString("testmsgs"), 0xABC);
    unknown << MOXMessageParm(I18NString("p1"));
    std::string text = unknown.format().str();
    EXPECT_NE(std::string::npos, text.find("0x00000ABC")) << text;
    EXPECT_NE(std::string::npos, text.find("p1")) << "parameters of an unknown message are still shown: " << text;
}

TEST_F(CatalogFixture, ExceptionReportShowsCodeMessagesFreeTextAndTrace) {
    MOXException e(MOX_SEVERITY_ERROR, 33);
    MOXMessage m(I18NString("testmsgs"), 0x10);
    m << MOXMessageParm(I18NString("nohost")) << MOXMessageParm(80, MOX_PARM_DECIMAL);
    e << m << MOXMessageString(I18NString("Connection refused"));
    e.addBackTrace(MOXFileLocation("Unit", 107), "Unit::op", "MOX_THROW");
    std::string report = e.toString().str();
    for (const char* part : {"code 33", "Host \"nohost\" on port 80 failed.", "Connection refused", "Unit:107",
                             "Unit::op", "MOX_THROW"})
        EXPECT_NE(std::string::npos, report.find(part)) << part << " missing in:\n" << report;
    EXPECT_EQ("testmsgs 0x00000010: Host \"nohost\" on port 80 failed.; Connection refused", e.getMessage().str());
}

TEST_F(CatalogFixture, MessageSetCopiesAreDeep) {
    MOXException a(1, 5);
    a << MOXMessageString(I18NString("first"));
    MOXException b(a);
    b << MOXMessageString(I18NString("second"));
    EXPECT_EQ(1u, a.getMessageCount());
    EXPECT_EQ(2u, b.getMessageCount());
    a = b;
    EXPECT_EQ("second", a.getMessageAt(1).format().str());
}
