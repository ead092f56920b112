// The forwarding functions: each reaches the loaded library's entry point of
// its own name with the caller's arguments and hands back its result; a
// missing entry point throws its text on every call and traces nothing; the
// library's error record is raised as the class library raises it.

#include "rfc/binding/rfc_binding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
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

int ServerFunction(ConnectionHandle) { return 0; }

TEST_F(RfcBindingTest, LoadingAMissingFileFails) {
  for (const char* missing : {"/nonexistent/librfc_nowhere.so", "librfc_nowhere_at_all.so", ""}) {
    EXPECT_FALSE(LoadRfcLibrary(missing)) << missing;
  }
  EXPECT_FALSE(LoadRfcLibrary(nullptr));
  ASSERT_TRUE(LoadRfcLibrary(STAND_IN_RFC_PARTIAL));
}

TEST_F(RfcBindingTest, EveryEntryPointForwardsArgumentsAndResult) {
  stand_in::State& library = Library();
  library.listen_default = 4711;
  library.dispatch_default = 4712;
  library.get_name_result = 4713;
  library.open_result = 4714;
  library.cancel_result = 4715;
  OpenOptions options{};
  char word[] = "-aPROG";
  char* argv[] = {word, nullptr};
  char name[RFC_FUNCTION_NAME_SIZE];
  int counts[2] = {};
  const TableHandle table = library.NewTable(4);
  struct Forward {
    const char* entry;
    std::function<long long()> call;
    long long result;        // -1: not compared
    ConnectionHandle handle;
    const char* text;        // what the library recorded of the arguments
  };
  const Forward forwards[] = {
      {"RfcOpen", [&] { return RfcOpen(&options); }, 4714, 0, ""},
      {"RfcAccept", [&] { return RfcAccept(argv); }, 1, 1, "-aPROG"},
      {"RfcClose", [] { RfcClose(21); return 0; }, -1, 21, ""},
      {"RfcCall", [] { return RfcCall(22, "RFCPING", nullptr, nullptr); }, 0, 22, "RFCPING"},
      {"RfcReceive", [] { return RfcReceive(23, nullptr, nullptr, nullptr); }, 0, 23, ""},
      {"RfcInstallFunction", [] { return RfcInstallFunction("Z_F", ServerFunction, nullptr); }, 0, 0,
       "Z_F"},
      {"RfcListen", [] { return RfcListen(24); }, 4711, 24, "4711"},
      {"RfcDispatch", [] { return RfcDispatch(25); }, 4712, 25, "4712"},
      {"RfcGetName", [&] { return RfcGetName(26, name); }, 4713, 26, ""},
      {"RfcGetData", [] { return RfcGetData(27, nullptr, nullptr); }, 0, 27, ""},
      {"RfcSendData", [] { return RfcSendData(28, nullptr, nullptr); }, 0, 28, ""},
      {"RfcRaise", [] { return RfcRaise(29, "RAISED"); }, 0, 29, "RAISED"},
      {"RfcGetAttributes", [] { return RfcGetAttributes(30, nullptr); }, 0, 30, ""},
      {"ItCreate", [] { return ItCreate("T", 8, 0, 0) != nullptr; }, 1, 0, ""},
      {"ItFree", [&] { return ItFree(table); }, 0, 0, ""},
      {"ItDelete", [&] { return ItDelete(table); }, 0, 0, ""},
      {"RfcCancelRegisterServer",
       [&] { return RfcCancelRegisterServer("PROG", "gw", "sapgw00", &counts[0], &counts[1], nullptr); },
       4715, 0, "PROG"},
  };
  for (const Forward& f : forwards) {
    SCOPED_TRACE(f.entry);
    const long long result = f.call();
    ASSERT_FALSE(library.log.empty());
    EXPECT_EQ(library.log.back().entry, f.entry);
    EXPECT_EQ(library.log.back().handle, f.handle);
    EXPECT_EQ(library.log.back().text, f.text);
    if (f.result != -1) {
      EXPECT_EQ(result, f.result);
    }
  }
  EXPECT_EQ(library.calls.at(0).function, "RFCPING");
  // The table entry points hand back the library's lines and counts.
  const TableHandle lines = library.NewTable(4);
  void* grown = ItGupLine(lines, 2);
  EXPECT_EQ(ItGetLine(lines, 2), grown);
  EXPECT_EQ(ItFill(lines), 2u);
  library.SetLastError("KEY", "status", "stub message");
  RFC_ERROR_INFO error{};
  EXPECT_EQ(RfcLastError(&error), RFC_OK);
  EXPECT_STREQ(error.message, "stub message");
  stand_in::State::SetErrorEx(library.last_error_ex, 104, "EX_KEY", "extended");
  ErrorInfoEx extended{};
  RfcLastErrorEx(&extended);
  EXPECT_EQ(extended.group, 104);
  RfcTypeElement element{};
  element.name = "F";
  element.length = 3;
  RfcTypeHandle handle = 0;
  EXPECT_EQ(RfcInstallStructure("S", &element, 1, &handle), RFC_OK);
  EXPECT_EQ(library.installs.at(0).elements.at(0).length, 3);
  EXPECT_EQ(handle, library.installs[0].handle);
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
