// The forwarding functions: each one reaches the loaded library's entry point
// with the caller's arguments and hands back its result; a missing entry point
// throws its text on every call; the library's error record is raised as the
// class library raises it.

#include "rfc/binding/rfc_binding.h"

#include <cstring>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/dynamic_library.h"
#include "rfc/core/rfc_error.h"
#include "tests/rfc/rfc_stub_library.h"
#include "tests/rfc/trace_capture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::MatchesRegex;

constexpr const char kStubPath[] = RFC_STUB_WITHOUT_CHECK_REGISTER;

class RfcBindingTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(LoadRfcLibrary(kStubPath));
    // The same file again gives the same handle: read the stub's record of
    // its last call through it.
    platform::LibraryHandle handle = platform::LoadDynamicLibrary(kStubPath);
    ASSERT_NE(handle, nullptr);
    last_call_ = reinterpret_cast<StubLastCall_t>(platform::GetLibrarySymbol(handle, "StubLastCall"));
    ASSERT_NE(last_call_, nullptr);
  }

  const StubCall& Last() const { return *last_call_(); }
  static int Expected(int entry) { return StubResult(kStubWithoutCheckRegister, entry); }

  StubLastCall_t last_call_ = nullptr;
};

TEST_F(RfcBindingTest, LoadingAMissingFileFails) {
  EXPECT_FALSE(LoadRfcLibrary("/nonexistent/librfc_nowhere.so"));
  EXPECT_FALSE(LoadRfcLibrary("librfc_no_such_library_anywhere.so"));
  EXPECT_FALSE(LoadRfcLibrary(""));
  EXPECT_FALSE(LoadRfcLibrary(nullptr));
  EXPECT_TRUE(LoadRfcLibrary(kStubPath));
}

TEST_F(RfcBindingTest, ConnectionEntryPointsForward) {
  OpenOptions options{};
  EXPECT_EQ(RfcOpen(&options), static_cast<ConnectionHandle>(Expected(kStubRfcOpen)));
  EXPECT_STREQ(Last().function, "RfcOpen");
  EXPECT_EQ(Last().pointers[0], &options);

  char program[] = "prog";
  char* argv[] = {program, nullptr};
  EXPECT_EQ(RfcAccept(argv), static_cast<ConnectionHandle>(Expected(kStubRfcAccept)));
  EXPECT_STREQ(Last().function, "RfcAccept");
  EXPECT_EQ(Last().pointers[0], argv);

  RfcClose(4711);
  EXPECT_STREQ(Last().function, "RfcClose");
  EXPECT_EQ(Last().numbers[0], 4711);

  ConnectionAttributes attributes{};
  EXPECT_EQ(RfcGetAttributes(12, &attributes), Expected(kStubRfcGetAttributes));
  EXPECT_STREQ(Last().function, "RfcGetAttributes");
  EXPECT_EQ(Last().numbers[0], 12);
  EXPECT_EQ(Last().pointers[0], &attributes);
}

TEST_F(RfcBindingTest, CallEntryPointsForward) {
  RfcParameterEntry parameters[1] = {};
  RfcTableEntry tables[1] = {};
  EXPECT_EQ(RfcCall(7, "RFCPING", parameters, tables), Expected(kStubRfcCall));
  EXPECT_STREQ(Last().function, "RfcCall");
  EXPECT_EQ(Last().numbers[0], 7);
  EXPECT_STREQ(static_cast<const char*>(Last().pointers[0]), "RFCPING");
  EXPECT_EQ(Last().pointers[1], parameters);
  EXPECT_EQ(Last().pointers[2], tables);

  char* exception = nullptr;
  EXPECT_EQ(RfcReceive(8, parameters, tables, &exception), Expected(kStubRfcReceive));
  EXPECT_STREQ(Last().function, "RfcReceive");
  EXPECT_EQ(Last().numbers[0], 8);
  EXPECT_EQ(Last().pointers[0], parameters);
  EXPECT_EQ(Last().pointers[1], tables);
  EXPECT_EQ(Last().pointers[2], &exception);

  EXPECT_EQ(RfcGetData(9, parameters, tables), Expected(kStubRfcGetData));
  EXPECT_STREQ(Last().function, "RfcGetData");
  EXPECT_EQ(Last().numbers[0], 9);
  EXPECT_EQ(Last().pointers[0], parameters);
  EXPECT_EQ(RfcSendData(10, parameters, tables), Expected(kStubRfcSendData));
  EXPECT_STREQ(Last().function, "RfcSendData");
  EXPECT_EQ(Last().pointers[1], tables);
}

int ServerFunction(ConnectionHandle) { return 0; }

TEST_F(RfcBindingTest, ServerEntryPointsForward) {
  RfcTypeElement elements[2] = {};
  RfcTypeHandle type_handle = 0;
  EXPECT_EQ(RfcInstallStructure("ZSTRUCT", elements, 2, &type_handle),
            Expected(kStubRfcInstallStructure));
  EXPECT_STREQ(Last().function, "RfcInstallStructure");
  EXPECT_EQ(Last().pointers[1], elements);
  EXPECT_EQ(Last().pointers[2], &type_handle);
  EXPECT_EQ(Last().numbers[0], 2);

  EXPECT_EQ(RfcInstallFunction(RFC_GLOBAL_SERVER_NAME, ServerFunction, nullptr),
            Expected(kStubRfcInstallFunction));
  EXPECT_STREQ(Last().function, "RfcInstallFunction");
  EXPECT_STREQ(static_cast<const char*>(Last().pointers[0]), RFC_GLOBAL_SERVER_NAME);
  EXPECT_EQ(Last().pointers[1], reinterpret_cast<const void*>(&ServerFunction));
  EXPECT_EQ(Last().pointers[2], nullptr);

  EXPECT_EQ(RfcListen(21), Expected(kStubRfcListen));
  EXPECT_STREQ(Last().function, "RfcListen");
  EXPECT_EQ(Last().numbers[0], 21);
  EXPECT_EQ(RfcDispatch(22), Expected(kStubRfcDispatch));
  EXPECT_STREQ(Last().function, "RfcDispatch");
  EXPECT_EQ(Last().numbers[0], 22);
  char name[RFC_FUNCTION_NAME_SIZE];
  EXPECT_EQ(RfcGetName(23, name), Expected(kStubRfcGetName));
  EXPECT_STREQ(Last().function, "RfcGetName");
  EXPECT_EQ(Last().pointers[0], name);
  EXPECT_EQ(RfcRaise(24, "NOT_FOUND"), Expected(kStubRfcRaise));
  EXPECT_STREQ(Last().function, "RfcRaise");
  EXPECT_EQ(Last().numbers[0], 24);
  EXPECT_STREQ(static_cast<const char*>(Last().pointers[0]), "NOT_FOUND");
}

TEST_F(RfcBindingTest, ErrorEntryPointsForward) {
  RFC_ERROR_INFO error{};
  EXPECT_EQ(RfcLastError(&error), Expected(kStubRfcLastError));
  EXPECT_STREQ(Last().function, "RfcLastError");
  EXPECT_STREQ(error.message, "stub message");
  ErrorInfoEx extended{};
  EXPECT_EQ(RfcLastErrorEx(&extended), Expected(kStubRfcLastErrorEx));
  EXPECT_STREQ(Last().function, "RfcLastErrorEx");
  EXPECT_EQ(Last().pointers[0], &extended);
}

TEST_F(RfcBindingTest, TableEntryPointsForward) {
  TableHandle table = ItCreate("LINES", 80, 0, 0);
  EXPECT_NE(table, nullptr);
  EXPECT_STREQ(Last().function, "ItCreate");
  EXPECT_STREQ(static_cast<const char*>(Last().pointers[0]), "LINES");
  EXPECT_EQ(Last().numbers[0], 80);
  EXPECT_EQ(Last().numbers[1], 0);
  EXPECT_EQ(ItFill(table), static_cast<unsigned>(Expected(kStubItFill)));
  EXPECT_EQ(Last().pointers[0], table);
  void* line = ItGetLine(table, 3);
  EXPECT_STREQ(Last().function, "ItGetLine");
  EXPECT_EQ(Last().numbers[0], 3);
  EXPECT_NE(line, nullptr);
  // Pointers come back unchanged: the stub's lines are one array, ItGetLine(n)
  // answers line n % 4, ItGupLine(n) line (n + 1) % 4, ItCreate line 1 here.
  EXPECT_EQ(ItGupLine(table, 2), line);
  EXPECT_STREQ(Last().function, "ItGupLine");
  EXPECT_EQ(Last().numbers[0], 2);
  EXPECT_EQ(ItGetLine(table, 1), static_cast<void*>(table));
  EXPECT_EQ(ItDelete(table), Expected(kStubItDelete));
  EXPECT_STREQ(Last().function, "ItDelete");
  EXPECT_EQ(ItFree(table), Expected(kStubItFree));
  EXPECT_STREQ(Last().function, "ItFree");
  EXPECT_EQ(Last().pointers[0], table);
}

TEST_F(RfcBindingTest, CancelRegisterServerForwards) {
  int total = 0;
  int cancelled = 0;
  ErrorInfoEx error{};
  EXPECT_EQ(RfcCancelRegisterServer("PROG", "gwhost", "sapgw00", &total, &cancelled, &error),
            Expected(kStubRfcCancelRegisterServer));
  EXPECT_STREQ(Last().function, "RfcCancelRegisterServer");
  EXPECT_STREQ(static_cast<const char*>(Last().pointers[0]), "PROG");
  EXPECT_STREQ(static_cast<const char*>(Last().pointers[1]), "gwhost");
  EXPECT_STREQ(static_cast<const char*>(Last().pointers[2]), "sapgw00");
  EXPECT_EQ(Last().pointers[3], &total);
  EXPECT_EQ(Last().pointers[4], &cancelled);
  EXPECT_EQ(Last().pointers[5], &error);
}

TEST_F(RfcBindingTest, MissingEntryPointThrowsItsTextOnEveryCall) {
  int counts[4] = {};
  ErrorInfoEx error{};
  for (int attempt = 0; attempt < 3; ++attempt) {
    try {
      RfcCheckRegisterServer("PROG", "host", "sapgw00", &counts[0], &counts[1], &counts[2],
                             &counts[3], &error);
      FAIL() << "no exception";
    } catch (const char* text) {
      EXPECT_STREQ(text, "Failed to get pointer to function: RfcCheckRegisterServer");
    }
  }
  RfcListen(1);  // the rest of the library still works
  EXPECT_STREQ(Last().function, "RfcListen");
}

TEST_F(RfcBindingTest, MissingEntryPointWritesNoTrace) {
  auto run = rfc_test::RunTraced([] {
    RfcCheckRegisterServer(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                           nullptr);
  });
  EXPECT_TRUE(run.threw_text);
  EXPECT_FALSE(run.file_exists);
}

TEST_F(RfcBindingTest, LastErrorIsThrownByValueAndTracedOnRequest) {
  auto traced = rfc_test::RunTraced([] {
    try {
      ThrowRfcLastError(true);
    } catch (const RFC_ERROR_INFO& error) {
      EXPECT_STREQ(error.key, "STUB_KEY_WITH_24_CHARSXY");
      EXPECT_STREQ(error.status, "stub status");
      EXPECT_STREQ(error.message, "stub message");
      EXPECT_STREQ(error.intstat, "stub internal");
      return;
    }
    ADD_FAILURE() << "no RFC_ERROR_INFO";
  });
  EXPECT_THAT(traced.lines, ElementsAre("Key:    STUB_KEY_WITH_24_CHA", "Status: stub statu",
                                        "Message:stub message"));

  auto quiet = rfc_test::RunTraced([] { EXPECT_THROW(ThrowRfcLastError(false), RFC_ERROR_INFO); });
  EXPECT_FALSE(quiet.file_exists);
  auto off = rfc_test::RunTraced([] { EXPECT_THROW(ThrowRfcLastError(true), RFC_ERROR_INFO); },
                                 false);
  EXPECT_FALSE(off.file_exists);
}

TEST_F(RfcBindingTest, PlainFailureWritesItsFourSteps) {
  auto run = rfc_test::RunTraced(
      [] { ThrowRfcFailure("CSomething::Operation called", {"first", "second"}, "Thrown text"); });
  EXPECT_EQ(run.thrown, "Thrown text");
  EXPECT_THAT(run.lines, ElementsAre("", "", "", MatchesRegex("Rfc Class Library Trace at   .*"),
                                     "CSomething::Operation called", "first", "second"));
  EXPECT_EQ(GetRfcLastError().key, std::string("STUB_KEY_WITH_24_CHARSXY"));
}

}  // namespace
