// The binding over the life of a process: calls before any library is loaded,
// failed loads, and a second load that keeps the addresses already resolved.
// An executable of its own, because the binding's state is the process's.

#include "rfc/binding/rfc_binding.h"

#include "tests/rfc/rfc_test_support.h"

namespace {

TEST(RfcBindingLifecycle, BeforeLoadFailedLoadAndReload) {
  // Every forwarder, called with harmless arguments.
  const std::vector<std::pair<std::string, std::function<void()>>> forwarders = {
      {"RfcOpen", [] { RfcOpen(nullptr); }},
      {"RfcAccept", [] { RfcAccept(nullptr); }},
      {"RfcClose", [] { RfcClose(0); }},
      {"RfcCall", [] { RfcCall(42, "RFCPING", nullptr, nullptr); }},
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
      {"RfcCancelRegisterServer", [] { RfcCancelRegisterServer(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }},
  };
  stand_in::State& complete = stand_in::StandIn(STAND_IN_RFC);
  stand_in::State& partial = stand_in::StandIn(STAND_IN_RFC_PARTIAL);
  std::string out;
  // Calls forwarders by name and writes per call what it threw, or which
  // library logged it under which entry point, with which handle and text.
  auto logged = [](const stand_in::Record& r) { return r.entry + "(" + r.text + ", " + std::to_string(r.handle) + ")"; };
  auto call = [&](const std::string& stage, std::vector<std::string> names = {}) {
    out += "## " + stage + "\n";
    for (const auto& [name, forward] : forwarders) {
      if (!names.empty() && std::find(names.begin(), names.end(), name) == names.end()) continue;
      const size_t before = complete.log.size(), before_partial = partial.log.size();
      const std::string thrown = rfc_test::Thrown(forward);
      out += name + ": " + (!thrown.empty()                     ? thrown
                            : complete.log.size() > before        ? "complete " + logged(complete.log.back())
                            : partial.log.size() > before_partial ? "partial " + logged(partial.log.back())
                                                                  : "not logged") + "\n";
    }
  };
  call("nothing loaded");
  for (const char* missing : {"/nonexistent/librfc.so", "librfc_nowhere_at_all.so", "", static_cast<const char*>(nullptr)}) {
    out += std::string("load ") + (missing != nullptr ? missing : "null") + ": " + std::to_string(LoadRfcLibrary(missing)) + "\n";
  }
  call("after failed loads", {"RfcOpen"});
  out += "load complete: " + std::to_string(LoadRfcLibrary(STAND_IN_RFC)) + "\n";
  call("complete loaded", {"RfcOpen", "RfcListen"});
  // A second library replaces the handle, but resolved addresses stay in use;
  // entry points not yet resolved come from the new library, and the one it
  // lacks fails although the first library had it.
  out += "load partial: " + std::to_string(LoadRfcLibrary(STAND_IN_RFC_PARTIAL)) + "\n";
  call("partial loaded", {"RfcOpen", "RfcListen", "RfcDispatch", "RfcCheckRegisterServer"});
  // A failed load empties the handle: unresolved entry points fail again,
  // resolved ones keep working.
  out += "load missing: " + std::to_string(LoadRfcLibrary("/nonexistent/librfc.so")) + "\n";
  call("after a failed load", {"RfcRaise", "RfcDispatch"});
  out += "load complete: " + std::to_string(LoadRfcLibrary(STAND_IN_RFC)) + "\n";
  call("complete loaded again");
  EXPECT_TRUE(testutil::MatchesExpectedFile(out, "tests/rfc/expected/binding_lifecycle.txt"));
}

}  // namespace
