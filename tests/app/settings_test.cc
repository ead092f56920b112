#include "app/settings.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "tests/support/temp_dir.h"

namespace {

class SettingsTest : public ::testing::Test {
 protected:
  std::string Make(const std::string& bytes, const std::string& name = "batch.ini") {
    return dir_.Write(name, bytes);
  }
  // Every field but the instance name holds what `expected` says, or nothing.
  static void ExpectFields(const CSettings& settings, const std::map<CSettings::Field, std::string>& expected) {
    for (std::size_t i = 0; i < CSettings::kInstanceName; ++i) {
      const auto field = static_cast<CSettings::Field>(i);
      const auto found = expected.find(field);
      EXPECT_EQ(settings.Get(field), found == expected.end() ? "" : found->second) << CSettings::KeyOf(field);
    }
  }

  testutil::TempDir dir_;
};

TEST_F(SettingsTest, EveryKeyLandsInItsOwnFieldAndNothingElseDoes) {
  const std::map<CSettings::Field, std::string> keys = {
      {CSettings::kGatewayHost, "sap.server.gateway.host"}, {CSettings::kGatewayService, "sap.server.gateway.service"},
      {CSettings::kProgramId, "sap.server.programm.id"},     {CSettings::kListenTimer, "sap.server.listen.timer"},
      {CSettings::kLoadBalancing, "sap.client.loadbalancing"}, {CSettings::kMessageServer, "sap.client.lb.messageserver"},
      {CSettings::kSystem, "sap.client.lb.system"},          {CSettings::kGroup, "sap.client.lb.group"},
      {CSettings::kClientHost, "sap.client.host"},           {CSettings::kSystemNumber, "sap.client.sysnumber"},
      {CSettings::kClient, "sap.client.client"},             {CSettings::kUser, "sap.client.user.id"},
      {CSettings::kPassword, "sap.client.user.password"},    {CSettings::kLanguage, "sap.client.language"},
      {CSettings::kTrace, "sap.client.trace"},               {CSettings::kLibrary, "sap.library"},
      {CSettings::kLogDirectory, "sap.path"},                {CSettings::kXmlDirectory, "xml.path"}};
  ASSERT_EQ(keys.size(), static_cast<size_t>(CSettings::kInstanceName));
  std::string ini = "[SRV1]\r\n";
  std::map<CSettings::Field, std::string> values;
  for (const auto& [field, key] : keys) {
    values[field] = "value of " + key;
    ini += key + "=" + values[field] + "\r\n";
  }
  ini += "[SRV2]\r\nsap.library=other.so\r\n";
  const CSettings settings("SRV1 " + Make(ini));
  ExpectFields(settings, values);
  EXPECT_EQ(settings.GetInstanceName(), "SRV1");

  // A missing section, comment-like lines and unknown names leave all empty.
  ExpectFields(CSettings(), {});
  EXPECT_EQ(CSettings().GetInstanceName(), "");
  ExpectFields(CSettings("SRV1 " + Make("[OTHER]\r\nsap.library=x.so\r\n", "other.ini")), {});
  ExpectFields(CSettings("SRV1 " + Make("[SRV1]\r\n; sap.library=c.so\r\nsap.libraryx=no.so\r\n", "odd.ini")), {});
}

TEST_F(SettingsTest, KeysMatchInAnyCaseButValuesAreTakenAsTheyStand) {
  const CSettings settings("SRV1 " + Make("[SRV1]\r\n"
                                          "SAP.LIBRARY=upper.so\r\n"
                                          "SAP.LIBRARY=again.so\r\n"  // one spelling: the first wins
                                          "sap.path =/ignored\r\n"   // no blank before =
                                          "xml.path=/lower\r\n"
                                          "Xml.Path=/mixed\r\n"      // the last spelling wins
                                          "sap.client.host= /dir with blanks \r\n"
                                          "sap.client.user.id=\r\n"));
  ExpectFields(settings, {{CSettings::kLibrary, "upper.so"},
                          {CSettings::kXmlDirectory, "/mixed"},
                          {CSettings::kClientHost, " /dir with blanks "}});
}

TEST_F(SettingsTest, CommandLineIsTrimmedAndSplitAtTheFirstBlank) {
  const std::string path = Make("[SRV7]\r\nsap.library=x.so\r\n", "name with blanks.ini");
  const CSettings settings("  \t SRV7 " + path + " \r\n ");
  EXPECT_EQ(settings.GetInstanceName(), "SRV7");
  EXPECT_EQ(settings.GetLibrary(), "x.so");

  // A path alone gives an empty instance, which reads the section "[]".
  const std::string plain = Make("[SRV1]\r\nsap.library=named.so\r\n[]\r\nsap.library=empty.so\r\n");
  ASSERT_EQ(plain.find(' '), std::string::npos);
  const CSettings path_only(plain);
  EXPECT_EQ(path_only.GetInstanceName(), "");
  EXPECT_EQ(path_only.GetLibrary(), "empty.so");
}

TEST_F(SettingsTest, UnreadableIniFileRaisesItsMessage) {
  try {
    CSettings settings("SRV1 " + dir_.File("missing.ini"));
    ADD_FAILURE() << "no exception";
  } catch (const std::string& raised) {
    EXPECT_EQ(raised, "File I/O error: 2 for file: " + dir_.File("missing.ini"));
  }
}

TEST(ExampleIniTest, ExampleSectionSetsEveryKey) {
  const CSettings settings(std::string("SRV1 ") + BS_TEST_SOURCE_DIR + "/examples/batchserver.ini");
  for (std::size_t i = 0; i < CSettings::kFieldCount; ++i) {
    const auto field = static_cast<CSettings::Field>(i);
    const std::string value = settings.Get(field);
    EXPECT_FALSE(value.empty()) << CSettings::KeyOf(field);
    // Comment lines must not leak into values, nor values run past their line.
    EXPECT_EQ(value.find_first_of("\r\n"), std::string::npos) << CSettings::KeyOf(field);
  }
  EXPECT_EQ(settings.GetLibrary(), "build/lib/librfcsim.so");
  EXPECT_EQ(settings.GetGatewayService(), "sapgw00");
}

}  // namespace
