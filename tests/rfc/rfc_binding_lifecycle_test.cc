// The binding over the life of a process: calls before any library is loaded,
// a failed load, and a second load that keeps the addresses already resolved.
// One test in an executable of its own, because the binding's state is the
// process's.

#include "rfc/binding/rfc_binding.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/rfc/rfc_test_support.h"

namespace {

using rfc_test::Thrown;

TEST(RfcBindingLifecycle, BeforeLoadFailedLoadAndReload) {
  // Every forwarder, called with harmless arguments.
  const std::vector<std::pair<std::string, std::function<void()>>> forwarders = {
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
      {"RfcLastError", [] { RfcLastError(nullptr); }},
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
  // Nothing loaded yet: every forwarder throws its own name, twice.
  for (const auto& [name, call] : forwarders) {
    EXPECT_EQ(Thrown(call), "Failed to get pointer to function: " + name);
    EXPECT_EQ(Thrown(call), "Failed to get pointer to function: " + name);
  }
  // A failed load changes nothing.
  for (const char* missing : {"/nonexistent/librfc.so", "librfc_nowhere_at_all.so", "", static_cast<const char*>(nullptr)}) {
    EXPECT_FALSE(LoadRfcLibrary(missing)) << (missing != nullptr ? missing : "null");
  }
  EXPECT_EQ(Thrown(forwarders[0].second), "Failed to get pointer to function: RfcOpen");

  // Two libraries that answer apart.
  stand_in::State& complete = stand_in::StandIn(STAND_IN_RFC);
  stand_in::State& partial = stand_in::StandIn(STAND_IN_RFC_PARTIAL);
  for (auto [library, base] : {std::pair{&complete, 1000}, std::pair{&partial, 2000}}) {
    library->open_result = static_cast<ConnectionHandle>(base + 1);
    library->listen_default = base + 2;
    library->dispatch_default = base + 3;
  }

  ASSERT_TRUE(LoadRfcLibrary(STAND_IN_RFC));
  EXPECT_EQ(RfcOpen(nullptr) + RfcListen(0), 1001u + 1002);

  // A second library replaces the handle, but resolved addresses stay in use;
  // entry points not yet resolved come from the new library, and the one it
  // lacks fails although the first library had it.
  ASSERT_TRUE(LoadRfcLibrary(STAND_IN_RFC_PARTIAL));
  EXPECT_EQ(RfcOpen(nullptr) + RfcListen(0), 1001u + 1002);
  EXPECT_EQ(RfcDispatch(0), 2003);
  EXPECT_EQ(Thrown(forwarders[22].second),
            "Failed to get pointer to function: RfcCheckRegisterServer");

  // A failed load empties the handle: unresolved entry points fail again,
  // resolved ones keep working.
  EXPECT_FALSE(LoadRfcLibrary("/nonexistent/librfc.so"));
  EXPECT_EQ(Thrown([] { RfcRaise(0, nullptr); }), "Failed to get pointer to function: RfcRaise");
  EXPECT_EQ(RfcDispatch(0), 2003);

  // Loading the complete library again makes the missing entry point work,
  // with the caller's arguments.
  ASSERT_TRUE(LoadRfcLibrary(STAND_IN_RFC));
  complete.check_result = 1004;
  complete.check_total = 3;
  int counts[4] = {};
  EXPECT_EQ(RfcCheckRegisterServer("PROG", "gwhost", "sapgw00", &counts[0], &counts[1], &counts[2],
                                   &counts[3], nullptr),
            1004);
  EXPECT_EQ(complete.log.back().text + std::to_string(counts[0] + counts[2]), "PROG6");

  // Every forwarder reaches the entry point of its own name (those the
  // library logs), with the caller's handle and text.
  partial.Reset();
  complete.Reset();
  for (const auto& [name, call] : forwarders) {
    const size_t before = complete.log.size() + partial.log.size();
    call();
    if (name.rfind("RfcLastError", 0) == 0 || name == "ItFill" || name.rfind("ItG", 0) == 0) continue;
    ASSERT_EQ(complete.log.size() + partial.log.size(), before + 1) << name;
    const auto& last = complete.log.size() > 0 && complete.log.back().entry == name
                           ? complete.log.back() : partial.log.back();
    EXPECT_EQ(last.entry, name);
  }
  RfcCall(42, "RFCPING", nullptr, nullptr);
  EXPECT_EQ(complete.log.back().text + std::to_string(complete.log.back().handle), "RFCPING42");
  const TableHandle table = ItCreate("T", 4, 0, 0);
  void* grown = ItGupLine(table, 2);
  EXPECT_EQ(ItGetLine(table, 2), grown);
  EXPECT_EQ(ItFill(table), 2u);
  complete.SetLastError("KEY", "status", "message");
  RFC_ERROR_INFO error{};
  EXPECT_EQ(RfcLastError(&error), RFC_OK);
  EXPECT_STREQ(error.message, "message");
}

}  // namespace
