#include "app/settings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/support/temp_dir.h"

namespace {

class SettingsTest : public ::testing::Test {
 protected:
  std::string Make(const std::string& bytes, const std::string& name = "batch.ini") {
    const std::string path = dir_.File(name);
    testutil::WriteBytes(path, bytes);
    return path;
  }

  static void ExpectOnlyField(const CSettings& settings, CSettings::Field field,
                              const std::string& value) {
    for (std::size_t i = 0; i < CSettings::kInstanceName; ++i) {
      const auto f = static_cast<CSettings::Field>(i);
      EXPECT_EQ(settings.Get(f), f == field ? value : "") << "field " << CSettings::KeyOf(f);
    }
  }

  testutil::TempDir dir_;
};

TEST_F(SettingsTest, DefaultIsAllEmpty) {
  const CSettings settings;
  for (std::size_t i = 0; i < CSettings::kFieldCount; ++i) {
    EXPECT_EQ(settings.Get(static_cast<CSettings::Field>(i)), "");
  }
}

TEST_F(SettingsTest, SingleKeyFillsOnlyItsField) {
  const std::string path = Make("[SRV1]\r\nsap.library=librfc32.dll\r\n");
  const CSettings settings("SRV1 " + path);
  EXPECT_EQ(settings.GetInstanceName(), "SRV1");
  EXPECT_EQ(settings.GetLibrary(), "librfc32.dll");
  ExpectOnlyField(settings, CSettings::kLibrary, "librfc32.dll");
}

TEST_F(SettingsTest, EveryKeyLandsInItsOwnField) {
  const std::string path = Make(
      "[SRV1]\r\n"
      "sap.server.gateway.host=gwhost\r\n"
      "sap.server.gateway.service=sapgw00\r\n"
      "sap.server.programm.id=BATCHPRG\r\n"
      "sap.server.listen.timer=250\r\n"
      "sap.client.loadbalancing=Yes\r\n"
      "sap.client.lb.messageserver=mshost\r\n"
      "sap.client.lb.system=SID\r\n"
      "sap.client.lb.group=PUBLIC\r\n"
      "sap.client.host=apphost\r\n"
      "sap.client.sysnumber=00\r\n"
      "sap.client.client=100\r\n"
      "sap.client.user.id=RFCUSER\r\n"
      "sap.client.user.password=secret\r\n"
      "sap.client.language=EN\r\n"
      "sap.client.trace=1\r\n"
      "sap.library=librfcsim.so\r\n"
      "sap.path=/var/log/bs\r\n"
      "xml.path=/var/spool/bs\r\n"
      "[SRV2]\r\n"
      "sap.library=other.so\r\n");
  const CSettings s("SRV1 " + path);
  EXPECT_EQ(s.GetGatewayHost(), "gwhost");
  EXPECT_EQ(s.GetListenTimer(), "250");
  EXPECT_EQ(s.GetProgramId(), "BATCHPRG");
  EXPECT_EQ(s.GetGatewayService(), "sapgw00");
  EXPECT_EQ(s.GetLoadBalancing(), "Yes");
  EXPECT_EQ(s.GetMessageServer(), "mshost");
  EXPECT_EQ(s.GetSystem(), "SID");
  EXPECT_EQ(s.GetGroup(), "PUBLIC");
  EXPECT_EQ(s.GetClientHost(), "apphost");
  EXPECT_EQ(s.GetSystemNumber(), "00");
  EXPECT_EQ(s.GetClient(), "100");
  EXPECT_EQ(s.GetUser(), "RFCUSER");
  EXPECT_EQ(s.GetPassword(), "secret");
  EXPECT_EQ(s.GetLanguage(), "EN");
  EXPECT_EQ(s.GetTrace(), "1");
  EXPECT_EQ(s.GetLibrary(), "librfcsim.so");
  EXPECT_EQ(s.GetLogDirectory(), "/var/log/bs");
  EXPECT_EQ(s.GetXmlDirectory(), "/var/spool/bs");
  EXPECT_EQ(s.GetInstanceName(), "SRV1");
}

TEST_F(SettingsTest, KeysMatchInAnyCaseButNotWithABlankBeforeEquals) {
  const std::string path = Make(
      "[SRV1]\r\n"
      "SAP.LIBRARY=upper.so\r\n"
      "sap.path =/ignored\r\n"
      "Xml.Path=/xml\r\n");
  const CSettings settings("SRV1 " + path);
  EXPECT_EQ(settings.GetLibrary(), "upper.so");
  EXPECT_EQ(settings.GetLogDirectory(), "");
  EXPECT_EQ(settings.GetXmlDirectory(), "/xml");
}

TEST_F(SettingsTest, DuplicatesFirstWinsForOneSpellingLastWinsAcrossSpellings) {
  const std::string path = Make(
      "[SRV1]\r\n"
      "sap.library=first.so\r\n"
      "sap.library=second.so\r\n"
      "xml.path=/lower\r\n"
      "XML.PATH=/upper\r\n");
  const CSettings settings("SRV1 " + path);
  EXPECT_EQ(settings.GetLibrary(), "first.so");
  EXPECT_EQ(settings.GetXmlDirectory(), "/upper");
}

TEST_F(SettingsTest, ValuesAreKeptAsTheyStand) {
  const std::string path = Make("[SRV1]\r\nsap.path= /dir with blanks \r\nsap.client.user.id=\r\n");
  const CSettings settings("SRV1 " + path);
  EXPECT_EQ(settings.GetLogDirectory(), " /dir with blanks ");
  EXPECT_EQ(settings.GetUser(), "");
}

TEST_F(SettingsTest, LfLineEndsMakeAValueSwallowTheRestOfTheFile) {
  const std::string path = Make("[SRV1]\nsap.library=a.so\nxml.path=/x\n");
  const CSettings settings("SRV1 " + path);
  EXPECT_EQ(settings.GetLibrary(), "a.so\nxml.path=/x\n");
  EXPECT_EQ(settings.GetXmlDirectory(), "/x\n");
}

TEST_F(SettingsTest, CommandLineIsTrimmedAndSplitAtTheFirstBlank) {
  const std::string path = Make("[SRV7]\r\nsap.library=x.so\r\n", "name with blanks.ini");
  const CSettings settings("  \t SRV7 " + path + " \r\n ");
  EXPECT_EQ(settings.GetInstanceName(), "SRV7");
  EXPECT_EQ(settings.GetLibrary(), "x.so");
}

TEST_F(SettingsTest, PathOnlyGivesAnEmptyInstanceAndReadsTheEmptySection) {
  const std::string path = Make("[SRV1]\r\nsap.library=named.so\r\n[]\r\nsap.library=empty.so\r\n");
  ASSERT_EQ(path.find(' '), std::string::npos);
  const CSettings settings(path);
  EXPECT_EQ(settings.GetInstanceName(), "");
  EXPECT_EQ(settings.GetLibrary(), "empty.so");
}

TEST_F(SettingsTest, MissingSectionLeavesEverythingEmptyWithoutComplaint) {
  const std::string path = Make("[OTHER]\r\nsap.library=x.so\r\n");
  const CSettings settings("SRV1 " + path);
  ExpectOnlyField(settings, CSettings::kFieldCount, "");
  EXPECT_EQ(settings.GetInstanceName(), "SRV1");
}

TEST_F(SettingsTest, UnknownNamesAreIgnored) {
  const std::string path = Make("[SRV1]\r\n; sap.library=commented.so\r\nsap.libraryx=no.so\r\n");
  const CSettings settings("SRV1 " + path);
  ExpectOnlyField(settings, CSettings::kFieldCount, "");
}

TEST_F(SettingsTest, UnreadableIniFileRaisesItsMessage) {
  const std::string missing = dir_.File("missing.ini");
  try {
    CSettings settings("SRV1 " + missing);
    ADD_FAILURE() << "no exception";
  } catch (const std::string& message) {
    EXPECT_EQ(message, "File I/O error: 2 for file: " + missing);
  }

  const std::string flat = Make("[SRV1]sap.library=x.so", "flat.ini");
  try {
    CSettings settings("SRV1 " + flat);
    ADD_FAILURE() << "no exception";
  } catch (const std::string& message) {
    EXPECT_EQ(message, "Failed to locate a valid CR/LF combination!");
  }
}

TEST(ExampleIniTest, ExampleSectionSetsEveryKey) {
  const char* source = BS_TEST_SOURCE_DIR;
  const CSettings settings(std::string("SRV1 ") + source + "/examples/batchserver.ini");
  for (std::size_t i = 0; i < CSettings::kFieldCount; ++i) {
    const auto field = static_cast<CSettings::Field>(i);
    const std::string value = settings.Get(field);
    EXPECT_FALSE(value.empty()) << CSettings::KeyOf(field);
    // Comment lines must not leak into values, nor values run past their line.
    EXPECT_EQ(value.find_first_of("\r\n"), std::string::npos) << CSettings::KeyOf(field);
  }
  EXPECT_EQ(settings.GetLibrary(), "build/lib/librfcsim.so");
  EXPECT_EQ(settings.GetGatewayService(), "sapgw00");
  EXPECT_EQ(settings.GetInstanceName(), "SRV1");
}

}  // namespace
