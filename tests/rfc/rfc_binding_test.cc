// The binding within a loaded library: a missing entry point throws its text
// on every call and traces nothing; the library's error record is raised as
// the class library raises it. (Forwarding: the life-cycle test.)

#include "rfc/binding/rfc_binding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "rfc/core/rfc_error.h"
#include "tests/rfc/rfc_test_support.h"

namespace {

using ::testing::ElementsAre;

// The library without RfcCheckRegisterServer.
stand_in::State& Library() {
  static stand_in::State* state = [] {
    if (!LoadRfcLibrary(STAND_IN_RFC_PARTIAL)) throw std::runtime_error("cannot load the library");
    return &stand_in::StandIn(STAND_IN_RFC_PARTIAL);
  }();
  return *state;
}

class RfcBindingTest : public ::testing::Test {
 protected:
  void SetUp() override { Library().Reset(); }
};

TEST_F(RfcBindingTest, LoadingAMissingFileFails) {
  for (const char* missing : {"/nonexistent/librfc_nowhere.so", "librfc_nowhere_at_all.so", ""}) {
    EXPECT_FALSE(LoadRfcLibrary(missing)) << missing;
  }
  EXPECT_FALSE(LoadRfcLibrary(nullptr));
  ASSERT_TRUE(LoadRfcLibrary(STAND_IN_RFC_PARTIAL));
}

TEST_F(RfcBindingTest, AMissingEntryPointThrowsOnEveryCallAndTracesNothing) {
  Library();
  auto run = rfc_test::RunTraced([] {
    int counts[4] = {};
    for (int attempt = 0; attempt < 3; ++attempt) {
      try {
        RfcCheckRegisterServer("PROG", "host", "sapgw00", &counts[0], &counts[1], &counts[2],
                               &counts[3], nullptr);
        ADD_FAILURE() << "no exception";
      } catch (const char* text) {
        EXPECT_STREQ(text, "Failed to get pointer to function: RfcCheckRegisterServer");
      }
    }
  });
  EXPECT_FALSE(run.file_exists);
  RfcListen(1);  // the rest of the library still works
  EXPECT_EQ(Library().log.back().entry, "RfcListen");
}

TEST_F(RfcBindingTest, RaisingFailures) {
  Library().SetLastError("STUB_KEY_WITH_24_CHARSXY", "stub status", "stub message");
  // The library's error: thrown by value, its lines traced on request.
  auto traced = rfc_test::RunTraced([] {
    try {
      ThrowRfcLastError(true);
    } catch (const RFC_ERROR_INFO& error) {
      EXPECT_STREQ(error.key, "STUB_KEY_WITH_24_CHARSXY");
      EXPECT_STREQ(error.status, "stub status");
    }
  });
  EXPECT_THAT(traced.lines, ElementsAre("Key:    STUB_KEY_WITH_24_CHA", "Status: stub statu",
                                        "Message:stub message"));
  auto quiet = rfc_test::RunTraced([] { EXPECT_THROW(ThrowRfcLastError(false), RFC_ERROR_INFO); });
  EXPECT_FALSE(quiet.file_exists);
  auto off =
      rfc_test::RunTraced([] { EXPECT_THROW(ThrowRfcLastError(true), RFC_ERROR_INFO); }, false);
  EXPECT_FALSE(off.file_exists);

  // A failure of the class library's own: header, operation, lines, text.
  auto run = rfc_test::RunTraced([] {
    ThrowRfcFailure("CSomething::Operation called", {"first", "second"}, "Thrown text");
  });
  EXPECT_EQ(run.thrown, "Thrown text");
  EXPECT_THAT(run.lines,
              ElementsAre("", "", "", ::testing::StartsWith("Rfc Class Library Trace at"),
                          "CSomething::Operation called", "first", "second"));
}

}  // namespace
