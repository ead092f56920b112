// The binding within a loaded library: a file that cannot be loaded, and the
// library's error record raised as the class library raises it. (Missing
// entry points and forwarding: the life-cycle test.)

#include "rfc/binding/rfc_binding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "rfc/core/rfc_error.h"
#include "tests/rfc/rfc_test_support.h"

namespace {

using ::testing::ElementsAre;

TEST(RfcBindingTest, LoadingAMissingFileFails) {
  for (const char* missing : {"/nonexistent/librfc_nowhere.so", "librfc_nowhere_at_all.so", "", static_cast<const char*>(nullptr)}) {
    EXPECT_FALSE(LoadRfcLibrary(missing)) << (missing != nullptr ? missing : "null");
  }
  ASSERT_TRUE(LoadRfcLibrary(STAND_IN_RFC));
}

TEST(RfcBindingTest, RaisingFailures) {
  rfc_test::Fake().SetLastError("STUB_KEY_WITH_24_CHARSXY", "stub status", "stub message");
  // The library's error: thrown by value, its lines traced on request.
  auto traced = rfc_test::RunTraced([] {
    try {
      ThrowRfcLastError(true);
    } catch (const RFC_ERROR_INFO& error) {
      EXPECT_EQ(std::string(error.key) + "/" + error.status, "STUB_KEY_WITH_24_CHARSXY/stub status");
    }
  });
  EXPECT_THAT(traced.lines, ElementsAre("Key:    STUB_KEY_WITH_24_CHA", "Status: stub statu", "Message:stub message"));
  EXPECT_FALSE(rfc_test::RunTraced([] { EXPECT_THROW(ThrowRfcLastError(false), RFC_ERROR_INFO); }).file_exists);
  EXPECT_FALSE(rfc_test::RunTraced([] { EXPECT_THROW(ThrowRfcLastError(true), RFC_ERROR_INFO); }, false).file_exists);

  // A failure of the class library's own: header, operation, lines, text.
  auto run = rfc_test::RunTraced([] { ThrowRfcFailure("CSomething::Operation called", {"first", "second"}, "Thrown text"); });
  EXPECT_EQ(run.thrown, "Thrown text");
  EXPECT_THAT(run.lines, ElementsAre("", "", "", ::testing::StartsWith("Rfc Class Library Trace at"),
                                     "CSomething::Operation called", "first", "second"));
}

}  // namespace
