// The forwarding functions: each reaches the loaded library's entry point of
// its own name with the caller's arguments and hands back its result; a
// missing entry point throws its text on every call and traces nothing; the
// library's error record is raised as the class library raises it.

#include "rfc/binding/rfc_binding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/dynamic_library.h"
#include "rfc/core/rfc_error.h"
#include "tests/rfc/rfc_stub_library.h"
#include "tests/rfc/trace_capture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

constexpr const char kStubPath[] = RFC_STUB_WITHOUT_CHECK_REGISTER;

const StubCall& LastCall() {
  // The same file again gives the same handle: the stub's record of its calls.
  static const auto last_call = reinterpret_cast<StubLastCall_t>(
      platform::GetLibrarySymbol(platform::LoadDynamicLibrary(kStubPath), "StubLastCall"));
  return *last_call();
}

class RfcBindingTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(LoadRfcLibrary(kStubPath)); }
};

int ServerFunction(ConnectionHandle) { return 0; }

TEST_F(RfcBindingTest, LoadingAMissingFileFails) {
  for (const char* missing : {"/nonexistent/librfc_nowhere.so", "librfc_nowhere_at_all.so", ""}) {
    EXPECT_FALSE(LoadRfcLibrary(missing)) << missing;
  }
  EXPECT_FALSE(LoadRfcLibrary(nullptr));
}

TEST_F(RfcBindingTest, EveryEntryPointForwardsArgumentsAndResult) {
  OpenOptions options{};
  char* argv[] = {nullptr};
  RfcParameterEntry parameters[1] = {};
  RfcTableEntry tables[1] = {};
  char* exception = nullptr;
  RfcTypeElement elements[2] = {};
  RfcTypeHandle type_handle = 0;
  char name[RFC_FUNCTION_NAME_SIZE];
  ConnectionAttributes attributes{};
  ErrorInfoEx extended{};
  int counts[2] = {};
  const char kFunction[] = "RFCPING";
  const char kGateway[] = "gwhost";
  const char kService[] = "sapgw00";
  // Any table handle: the stub only records it.
  const TableHandle table = reinterpret_cast<TableHandle>(&options);
  struct Forward {
    const char* entry;
    int result;  // StubEntry of the answer; 0: no code to compare
    std::function<long long()> call;
    std::vector<const void*> pointers;
    std::vector<long long> numbers;
  };
  const Forward forwards[] = {
      {"RfcOpen", kStubRfcOpen, [&] { return RfcOpen(&options); }, {&options}, {}},
      {"RfcAccept", kStubRfcAccept, [&] { return RfcAccept(argv); }, {argv}, {}},
      {"RfcClose",
       0,
       [] {
         RfcClose(4711);
         return 0;
       },
       {},
       {4711}},
      {"RfcCall",
       kStubRfcCall,
       [&] { return RfcCall(7, kFunction, parameters, tables); },
       {kFunction, parameters, tables},
       {7}},
      {"RfcReceive",
       kStubRfcReceive,
       [&] { return RfcReceive(8, parameters, tables, &exception); },
       {parameters, tables, &exception},
       {8}},
      {"RfcInstallStructure",
       kStubRfcInstallStructure,
       [&] { return RfcInstallStructure(kFunction, elements, 2, &type_handle); },
       {kFunction, elements, &type_handle},
       {2}},
      {"RfcInstallFunction",
       kStubRfcInstallFunction,
       [&] { return RfcInstallFunction(kFunction, ServerFunction, nullptr); },
       {kFunction, reinterpret_cast<const void*>(&ServerFunction), nullptr},
       {}},
      {"RfcListen", kStubRfcListen, [] { return RfcListen(21); }, {}, {21}},
      {"RfcDispatch", kStubRfcDispatch, [] { return RfcDispatch(22); }, {}, {22}},
      {"RfcGetName", kStubRfcGetName, [&] { return RfcGetName(23, name); }, {name}, {23}},
      {"RfcGetData",
       kStubRfcGetData,
       [&] { return RfcGetData(9, parameters, tables); },
       {parameters, tables},
       {9}},
      {"RfcSendData",
       kStubRfcSendData,
       [&] { return RfcSendData(10, parameters, tables); },
       {parameters, tables},
       {10}},
      {"RfcRaise", kStubRfcRaise, [&] { return RfcRaise(24, kFunction); }, {kFunction}, {24}},
      {"RfcGetAttributes",
       kStubRfcGetAttributes,
       [&] { return RfcGetAttributes(12, &attributes); },
       {&attributes},
       {12}},
      {"RfcLastErrorEx",
       kStubRfcLastErrorEx,
       [&] { return RfcLastErrorEx(&extended); },
       {&extended},
       {}},
      {"ItCreate",
       0,
       [&] { return ItCreate(kFunction, 80, 0, 0) != nullptr; },
       {kFunction},
       {80, 0, 0}},
      {"ItFree", kStubItFree, [&] { return ItFree(table); }, {table}, {}},
      {"ItDelete", kStubItDelete, [&] { return ItDelete(table); }, {table}, {}},
      {"ItFill", kStubItFill, [&] { return ItFill(table); }, {table}, {}},
      {"ItGetLine", 0, [&] { return ItGetLine(table, 3) != nullptr; }, {table}, {3}},
      {"ItGupLine", 0, [&] { return ItGupLine(table, 2) != nullptr; }, {table}, {2}},
      {"RfcCancelRegisterServer",
       kStubRfcCancelRegisterServer,
       [&] {
         return RfcCancelRegisterServer(kFunction, kGateway, kService, &counts[0], &counts[1],
                                        &extended);
       },
       {kFunction, kGateway, kService, &counts[0], &counts[1], &extended},
       {}},
  };
  for (const Forward& f : forwards) {
    SCOPED_TRACE(f.entry);
    const long long result = f.call();
    const StubCall& last = LastCall();
    EXPECT_STREQ(last.function, f.entry);
    if (f.result != 0) {
      EXPECT_EQ(result, StubResult(kStubWithoutCheckRegister, f.result));
    }
    for (size_t i = 0; i < f.pointers.size(); ++i) {
      EXPECT_EQ(last.pointers[i], f.pointers[i]) << i;
    }
    EXPECT_THAT(std::vector<long long>(last.numbers, last.numbers + f.numbers.size()),
                ElementsAreArray(f.numbers));
  }
  // Line pointers come back unchanged: the stub answers line n % 4 for
  // ItGetLine(n), line (n + 1) % 4 for ItGupLine(n).
  EXPECT_EQ(ItGupLine(table, 2), ItGetLine(table, 3));
  RFC_ERROR_INFO error{};
  EXPECT_EQ(RfcLastError(&error), StubResult(kStubWithoutCheckRegister, kStubRfcLastError));
  EXPECT_STREQ(error.message, "stub message");
}

TEST_F(RfcBindingTest, AMissingEntryPointThrowsOnEveryCallAndTracesNothing) {
  auto run = rfc_test::RunTraced([] {
    int counts[4] = {};
    ErrorInfoEx error{};
    for (int attempt = 0; attempt < 3; ++attempt) {
      try {
        RfcCheckRegisterServer("PROG", "host", "sapgw00", &counts[0], &counts[1], &counts[2],
                               &counts[3], &error);
        ADD_FAILURE() << "no exception";
      } catch (const char* text) {
        EXPECT_STREQ(text, "Failed to get pointer to function: RfcCheckRegisterServer");
      }
    }
  });
  EXPECT_FALSE(run.file_exists);
  RfcListen(1);  // the rest of the library still works
  EXPECT_STREQ(LastCall().function, "RfcListen");
}

TEST_F(RfcBindingTest, RaisingFailures) {
  // The library's error: thrown by value, its lines traced on request.
  auto traced = rfc_test::RunTraced([] {
    try {
      ThrowRfcLastError(true);
    } catch (const RFC_ERROR_INFO& error) {
      EXPECT_STREQ(error.key, "STUB_KEY_WITH_24_CHARSXY");
      EXPECT_STREQ(error.status, "stub status");
      EXPECT_STREQ(error.intstat, "stub internal");
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
