// The binding over the life of a process: calls before any library is loaded,
// a failed load, and a second load that keeps the addresses already resolved.
// One test in an executable of its own, because the binding's state is the
// process's.

#include "rfc/binding/rfc_binding.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/dynamic_library.h"
#include "tests/rfc/rfc_stub_library.h"

namespace {

// Every forwarder, called with harmless arguments (the stubs only record them).
std::vector<std::pair<std::string, std::function<void()>>> AllForwarders() {
  return {
      {"RfcOpen", [] { RfcOpen(nullptr); }},
      {"RfcAccept", [] { RfcAccept(nullptr); }},
      {"RfcClose", [] { RfcClose(0); }},
      {"RfcCall", [] { RfcCall(0, nullptr, nullptr, nullptr); }},
      {"RfcReceive", [] { RfcReceive(0, nullptr, nullptr, nullptr); }},
      {"RfcInstallStructure", [] { RfcInstallStructure(nullptr, nullptr, 0, nullptr); }},
      {"RfcInstallFunction", [] { RfcInstallFunction(nullptr, nullptr, nullptr); }},
      {"RfcListen", [] { RfcListen(0); }},
      {"RfcDispatch", [] { RfcDispatch(0); }},
      {"RfcGetName", [] { RfcGetName(0, nullptr); }},
      {"RfcGetData", [] { RfcGetData(0, nullptr, nullptr); }},
      {"RfcSendData", [] { RfcSendData(0, nullptr, nullptr); }},
      {"RfcRaise", [] { RfcRaise(0, nullptr); }},
      {"RfcGetAttributes", [] { RfcGetAttributes(0, nullptr); }},
      {"RfcLastError", [] { RFC_ERROR_INFO e; RfcLastError(&e); }},
      {"RfcLastErrorEx", [] { RfcLastErrorEx(nullptr); }},
      {"ItCreate", [] { ItCreate(nullptr, 0, 0, 0); }},
      {"ItFree", [] { ItFree(nullptr); }},
      {"ItDelete", [] { ItDelete(nullptr); }},
      {"ItFill", [] { ItFill(nullptr); }},
      {"ItGetLine", [] { ItGetLine(nullptr, 1); }},
      {"ItGupLine", [] { ItGupLine(nullptr, 1); }},
      {"RfcCheckRegisterServer",
       [] { RfcCheckRegisterServer(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }},
      {"RfcCancelRegisterServer",
       [] { RfcCancelRegisterServer(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }},
  };
}

std::string ThrownBy(const std::function<void()>& call) {
  try {
    call();
  } catch (const char* text) {
    return text;
  }
  return "<nothing thrown>";
}

TEST(RfcBindingLifecycle, BeforeLoadFailedLoadAndReload) {
  const auto forwarders = AllForwarders();
  ASSERT_EQ(forwarders.size(), 24u);

  // Nothing loaded yet: every forwarder throws its own name, twice.
  for (const auto& [name, call] : forwarders) {
    EXPECT_EQ(ThrownBy(call), "Failed to get pointer to function: " + name);
    EXPECT_EQ(ThrownBy(call), "Failed to get pointer to function: " + name);
  }

  // A failed load changes nothing.
  EXPECT_FALSE(LoadRfcLibrary("/nonexistent/librfc.so"));
  EXPECT_EQ(ThrownBy(forwarders[0].second), "Failed to get pointer to function: RfcOpen");

  // The complete library: RfcOpen and RfcListen resolve to it.
  ASSERT_TRUE(LoadRfcLibrary(RFC_STUB_COMPLETE));
  EXPECT_EQ(RfcOpen(nullptr), static_cast<ConnectionHandle>(StubResult(kStubComplete, kStubRfcOpen)));
  EXPECT_EQ(RfcListen(0), StubResult(kStubComplete, kStubRfcListen));

  // A second library replaces the handle, but resolved addresses stay in use;
  // entry points not yet resolved come from the new library, and the one it
  // lacks fails although the first library had it.
  ASSERT_TRUE(LoadRfcLibrary(RFC_STUB_WITHOUT_CHECK_REGISTER));
  EXPECT_EQ(RfcOpen(nullptr), static_cast<ConnectionHandle>(StubResult(kStubComplete, kStubRfcOpen)));
  EXPECT_EQ(RfcListen(0), StubResult(kStubComplete, kStubRfcListen));
  EXPECT_EQ(RfcDispatch(0), StubResult(kStubWithoutCheckRegister, kStubRfcDispatch));
  EXPECT_EQ(ThrownBy(forwarders[22].second),
            "Failed to get pointer to function: RfcCheckRegisterServer");

  // A failed load empties the handle: unresolved entry points fail again,
  // resolved ones keep working.
  EXPECT_FALSE(LoadRfcLibrary("/nonexistent/librfc.so"));
  EXPECT_EQ(ThrownBy([] { RfcRaise(0, nullptr); }), "Failed to get pointer to function: RfcRaise");
  EXPECT_EQ(RfcDispatch(0), StubResult(kStubWithoutCheckRegister, kStubRfcDispatch));

  // Loading the complete library again makes the missing entry point work,
  // with the caller's arguments.
  ASSERT_TRUE(LoadRfcLibrary(RFC_STUB_COMPLETE));
  int counts[4] = {};
  ErrorInfoEx error{};
  EXPECT_EQ(RfcCheckRegisterServer("PROG", "gwhost", "sapgw00", &counts[0], &counts[1],
                                   &counts[2], &counts[3], &error),
            StubResult(kStubComplete, kStubRfcCheckRegisterServer));
  const StubCall& call = *reinterpret_cast<StubLastCall_t>(platform::GetLibrarySymbol(
      platform::LoadDynamicLibrary(RFC_STUB_COMPLETE), "StubLastCall"))();
  EXPECT_STREQ(call.function, "RfcCheckRegisterServer");
  EXPECT_STREQ(static_cast<const char*>(call.pointers[2]), "sapgw00");
  const void* expected[] = {&counts[0], &counts[1], &counts[2], &counts[3], &error};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(call.pointers[3 + i], expected[i]) << i;
}

}  // namespace
