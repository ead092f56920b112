#include "app/worker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "app/globals.h"
#include "app/settings.h"

namespace {

void CopyField(char* field, std::size_t size, const std::string& text) {
  std::memset(field, 0, size);
  std::memcpy(field, text.data(), std::min(size, text.size()));
}

TEST(WorkerTest, LibraryErrorIsDescribedFieldByField) {
  RFC_ERROR_INFO error;
  CopyField(error.key, sizeof error.key, "RFC_ERROR_LOGON_FAILURE");
  CopyField(error.status, sizeof error.status, "CONNECT to SAP gateway failed");
  CopyField(error.message, sizeof error.message, "Name or password is incorrect");
  CopyField(error.intstat, sizeof error.intstat, "");
  EXPECT_EQ(DescribeRfcError(error),
            "Key: RFC_ERROR_LOGON_FAILURE\nStatus: CONNECT to SAP gateway failed\n"
            "Message: Name or password is incorrect\nInitstate: ");
}

TEST(WorkerTest, UnterminatedLibraryErrorFieldsAreReadOnlyToTheirEnd) {
  RFC_ERROR_INFO error;
  std::memset(&error, 'X', sizeof error);  // no terminator anywhere
  const std::string described = DescribeRfcError(error);
  EXPECT_EQ(described, "Key: " + std::string(33, 'X') + "\nStatus: " + std::string(128, 'X') +
                           "\nMessage: " + std::string(256, 'X') +
                           "\nInitstate: " + std::string(128, 'X'));
}

class WorkerSettingsTest : public ::testing::Test {
 protected:
  void TearDown() override { ProcessSettings() = CSettings(); }
};

TEST_F(WorkerSettingsTest, IdlePauseIsTheListenTimerPlusOne) {
  const struct {
    const char* timer;
    uint32_t pause;
  } cases[] = {
      {"250", 251}, {"abc", 1}, {"", 1}, {" 10ms", 11}, {"-5", 0}, {"-1", 0},
      {"2147483647", 2147483648u}, {"99999999999", 2147483648u},
  };
  for (const auto& c : cases) {
    ProcessSettings().Set(CSettings::kListenTimer, c.timer);
    EXPECT_EQ(IdlePauseMs(), c.pause) << "timer '" << c.timer << "'";
  }
}

TEST_F(WorkerSettingsTest, OnlyAnExactYesSelectsTheMessageServer) {
  ProcessSettings().Set(CSettings::kLoadBalancing, "Yes");
  EXPECT_TRUE(LogonThroughMessageServer());
  for (const char* other : {"yes", "YES", "Yes ", " Yes", "", "1", "true"}) {
    ProcessSettings().Set(CSettings::kLoadBalancing, other);
    EXPECT_FALSE(LogonThroughMessageServer()) << "'" << other << "'";
  }
}

}  // namespace
