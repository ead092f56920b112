// The settings of an instance from its INI file. Each command line writes one
// line with the fields that hold something; the lines are compared whole
// with an expected file, so that every key's spelling is pinned there.

#include "app/settings.h"

#include <gtest/gtest.h>

#include "tests/support/expected_file.h"
#include "tests/support/temp_dir.h"

namespace {

// The instance name, then "key=value" of every other field that holds something.
std::string Fields(const CSettings& settings) {
  std::string text = "[" + settings.GetInstanceName() + "]";
  for (std::size_t i = 0; i < CSettings::kInstanceName; ++i) {
    const auto field = static_cast<CSettings::Field>(i);
    if (!settings.Get(field).empty()) text += " " + std::string(CSettings::KeyOf(field)) + "=" + settings.Get(field);
  }
  return text + "\n";
}

TEST(SettingsTest, EveryKeyLandsInItsOwnFieldFromTheInstancesSection) {
  testutil::TempDir dir;
  std::string all = "[SRV1]\r\n";
  for (std::size_t i = 0; i < CSettings::kInstanceName; ++i) {
    const std::string key = CSettings::KeyOf(static_cast<CSettings::Field>(i));
    all += key + "=" + std::to_string(i) + "\r\n";
  }
  // Keys match in any case; values stand as written; a missing section,
  // comment-like lines and unknown names leave all empty. The command line is
  // trimmed and split at the first blank; a path alone reads the section "[]".
  const std::string lines[] = {
      "SRV1 " + dir.Write("all.ini", all + "[SRV2]\r\nsap.library=other.so\r\n"),
      "SRV1 " + dir.Write("case.ini", "[SRV1]\r\n"
                                      "SAP.LIBRARY=upper.so\r\n"
                                      "SAP.LIBRARY=again.so\r\n"  // one spelling: the first wins
                                      "sap.path =/ignored\r\n"   // no blank before =
                                      "xml.path=/lower\r\n"
                                      "Xml.Path=/mixed\r\n"  // the last spelling wins
                                      "sap.client.host= /dir with blanks \r\n"
                                      "sap.client.user.id=\r\n"),
      "SRV1 " + dir.Write("other.ini", "[OTHER]\r\nsap.library=x.so\r\n"),
      "SRV1 " + dir.Write("odd.ini", "[SRV1]\r\n; sap.library=c.so\r\nsap.libraryx=no.so\r\n"),
      "  \t SRV7 " + dir.Write("name with blanks.ini", "[SRV7]\r\nsap.library=x.so\r\n") + " \r\n\v\f",
      dir.Write("plain.ini", "[SRV1]\r\nsap.library=named.so\r\n[]\r\nsap.library=empty.so\r\n"),
  };
  std::string text = Fields(CSettings());
  for (const std::string& line : lines) text += Fields(CSettings(line));
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/app/expected/settings.txt"));
  EXPECT_THROW(CSettings(" \t "), std::string) << "no path at all";
}

}  // namespace
