#include "app/settings.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

#include "tests/support/temp_dir.h"

namespace {

// Every field but the instance name holds what `expected` says, or nothing.
void ExpectFields(const CSettings& settings, const std::map<CSettings::Field, std::string>& expected) {
  for (std::size_t i = 0; i < CSettings::kInstanceName; ++i) {
    const auto field = static_cast<CSettings::Field>(i);
    const auto found = expected.find(field);
    EXPECT_EQ(settings.Get(field), found == expected.end() ? "" : found->second) << CSettings::KeyOf(field);
  }
}

TEST(SettingsTest, EveryKeyLandsInItsOwnFieldMatchedInAnyCase) {
  const char* keys[] = {"sap.server.gateway.host", "sap.server.listen.timer", "sap.server.programm.id",
                        "sap.server.gateway.service", "sap.client.loadbalancing", "sap.client.lb.messageserver",
                        "sap.client.lb.system", "sap.client.lb.group", "sap.client.host", "sap.client.sysnumber",
                        "sap.client.client", "sap.client.user.id", "sap.client.user.password", "sap.client.language",
                        "sap.client.trace", "sap.library", "sap.path", "xml.path"};
  ASSERT_EQ(std::size(keys), static_cast<size_t>(CSettings::kInstanceName));
  testutil::TempDir dir;
  std::string ini = "[SRV1]\r\n";
  std::map<CSettings::Field, std::string> values;
  for (std::size_t i = 0; i < std::size(keys); ++i) {
    const auto field = static_cast<CSettings::Field>(i);
    EXPECT_STREQ(CSettings::KeyOf(field), keys[i]);
    values[field] = "value of " + std::string(keys[i]);
    ini += std::string(keys[i]) + "=" + values[field] + "\r\n";
  }
  ini += "[SRV2]\r\nsap.library=other.so\r\n";
  const CSettings settings("SRV1 " + dir.Write("all.ini", ini));
  ExpectFields(settings, values);
  EXPECT_EQ(settings.GetInstanceName(), "SRV1");

  // Keys in any case; values as they stand; a missing section, comment-like
  // lines and unknown names leave all empty.
  ExpectFields(CSettings("SRV1 " + dir.Write("case.ini", "[SRV1]\r\n"
                                                         "SAP.LIBRARY=upper.so\r\n"
                                                         "SAP.LIBRARY=again.so\r\n"  // one spelling: the first wins
                                                         "sap.path =/ignored\r\n"   // no blank before =
                                                         "xml.path=/lower\r\n"
                                                         "Xml.Path=/mixed\r\n"  // the last spelling wins
                                                         "sap.client.host= /dir with blanks \r\n"
                                                         "sap.client.user.id=\r\n")),
               {{CSettings::kLibrary, "upper.so"},
                {CSettings::kXmlDirectory, "/mixed"},
                {CSettings::kClientHost, " /dir with blanks "}});
  ExpectFields(CSettings(), {});
  ExpectFields(CSettings("SRV1 " + dir.Write("other.ini", "[OTHER]\r\nsap.library=x.so\r\n")), {});
  ExpectFields(CSettings("SRV1 " + dir.Write("odd.ini", "[SRV1]\r\n; sap.library=c.so\r\nsap.libraryx=no.so\r\n")), {});
}

TEST(SettingsTest, CommandLineIsTrimmedAndSplitAtTheFirstBlank) {
  testutil::TempDir dir;
  const CSettings settings("  \t SRV7 " + dir.Write("name with blanks.ini", "[SRV7]\r\nsap.library=x.so\r\n") +
                           " \r\n\v\f");
  EXPECT_EQ(settings.GetInstanceName(), "SRV7");
  EXPECT_EQ(settings.GetLibrary(), "x.so");

  // A path alone gives an empty instance, which reads the section "[]".
  const std::string plain = dir.Write("plain.ini", "[SRV1]\r\nsap.library=named.so\r\n[]\r\nsap.library=empty.so\r\n");
  ASSERT_EQ(plain.find(' '), std::string::npos);
  const CSettings path_only(plain);
  EXPECT_EQ(path_only.GetInstanceName(), "");
  EXPECT_EQ(path_only.GetLibrary(), "empty.so");
  EXPECT_THROW(CSettings(" \t "), std::string) << "no path at all";
}

}  // namespace
