// Class-library operations failed at each of their allocations in turn: each
// failure ends in a defined outcome, the next run works, nothing leaks.

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "access/sap_table.h"
#include "app/batch_server_func.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_allocation.h"
#include "rfc/core/rfc_connection.h"
#include "rfc/core/rfc_data.h"
#include "rfc/core/rfc_list.h"
#include "rfc/core/rfc_string.h"
#include "rfc/core/rfc_trace.h"
#include "rfc/function/rfc_client_func.h"
#include "rfc/function/rfc_meta_dump.h"
#include "rfc/function/rfc_simple_param.h"
#include "rfc/function/rfc_struct_param.h"
#include "rfc/function/rfc_table_param.h"
#include "rfc/server/rfc_server_app.h"
#include "rfc/server/rfc_server_func.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/support/expected_file.h"
#include "tests/support/field_info.h"
#include "tests/support/sapsim_connection.h"

namespace faults {
namespace {

// One run: "" when it did its work and the result checked out, else what it reported.
using Step = std::function<std::string()>;

struct Operation {
  const char* name;
  std::function<Step()> prepare;  // builds what the run works on, before any fault is planned
  bool again_on_same = false;     // the run after a failure reuses those objects: they must stay usable
};

// An operation with nothing to prepare.
std::function<Step()> Plain(Step run) {
  return [run] { return run; };
}

CRfcConnection* g_connection = nullptr;

std::string Expect(bool ok, const std::string& what) { return ok ? std::string() : "wrong result: " + what; }

std::string Attempt(const Step& run) {
  try {
    return run();
  } catch (const char* text) {
    return text != nullptr ? text : "(null text)";
  } catch (const RFC_ERROR_INFO&) {
    return "RFC_ERROR_INFO";
  }
}

using test_support::Field;

class NoOpServerFunc : public CRfcServerFunc {
 public:
  explicit NoOpServerFunc(const char* name) : CRfcServerFunc(name) {}
  int Process() override { return 0; }
};

std::vector<Operation> Operations() {
  return {
      {"StringBuffersAndListStorage", Plain([] {
         CRfcString padded("abc", 30), text("abc"), middle;
         text += "def";
         text.Mid(middle, 1, 3);
         CRfcString copy(text);
         copy = "xyz";
         int item = 0;
         CRfcList<int> list;
         list.InitList(2);
         for (int i = 0; i < 25; ++i) list.Add(&item);
         list.SetAtGrow(40, &item);
         return Expect(padded == "abc" && padded.GetCapacity() == 30 && text == "abcdef" && middle == "bcd" &&
                           copy == "xyz" && list.GetCount() == 41 && list.GetAt(24) == &item,
                       "texts and list");
       })},
      {"PackedValueAsText",
       [] {
         auto bytes = std::make_shared<std::array<unsigned char, 3>>(std::array<unsigned char, 3>{0x01, 0x23, 0x4D});
         auto data = std::make_shared<CRfcData>(1);
         data->Init(bytes->data(), TYPE_BCD, 3, 2);
         return Step([bytes, data] {
           const char* text = static_cast<CSTR>(*data);
           return Expect(text != nullptr && std::string(text) == "-12.34", "packed text");
         });
       },
       true},
      {"ClientCall",
       [] {
         // Its lists changed, so every call array is built on the call.
         struct State {
           std::vector<std::unique_ptr<CRfcSimpleParam>> exports;
           std::unique_ptr<CRfcClientFunc> function;
         };
         auto state = std::make_shared<State>();
         state->function = std::make_unique<CRfcClientFunc>(g_connection, "RFC_GET_SAP_SYSTEM_PARAMETERS");
         for (auto [name, length] : {std::pair{"DATE_FORMAT", 30}, {"DECIMAL_SIGN", 1}, {"LANGUAGE", 1},
                                     {"SAP_SYSTEM_RELEASE", 4}, {"USER_NAME", 12}}) {
           state->exports.push_back(std::make_unique<CRfcSimpleParam>(name, TYPE_CHAR, length, 0, 0));
           state->function->AddExport(state->exports.back().get());
         }
         return Step([state] {
           char* exception = nullptr;
           const int rc = state->function->CallReceive(exception);
           return Expect(rc == 0 && std::string(static_cast<CSTR>(state->exports[3]->Value())) == "46C" &&
                             std::string(static_cast<CSTR>(state->exports[4]->Value())) == "BATCH",
                         "system parameters");
         });
       },
       true},
      {"ClientFunctionAutoCreation", Plain([] {
         CRfcClientFunc function(g_connection, "Z_KTZ_BAPI_GET_DD_INFO", 1);
         return Expect(function.GetImports().GetCount() == 1 && function.GetExports().GetCount() == 1 &&
                           function.GetTables().GetCount() == 1,
                       "interface");
       })},
      {"StructureAndTableParameterAutoCreation", Plain([] {
         CRfcStructParam order("ORDER", 0, 1, g_connection, "ZORDERS");
         CRfcTableParam orders("ORDERS", 0, 0, 1, g_connection, "ZORDERS");
         return Expect(order.GetFieldCount() == 3 && order.GetLength() == 22 && orders.GetFieldCount() == 3 &&
                           orders.GetLineLength() == 22,
                       "structure and table");
       })},
      // A function that cannot be made gives 0; a failure inside the call is the caller's.
      {"Ping", [] { return Step([] { return g_connection->Ping() != 0 ? "" : "ping gave 0"; }); },
       true},
      {"OpenWithItsPing",
       [] {
         // Logon records are set before the fault; the open and its ping run under it.
         auto connection = std::make_shared<CRfcConnection>();
         connection->SetLogonInfo(g_connection->GetLogonInfo());
         connection->SetConnInfo(g_connection->GetConnInfo());
         return Step([connection] {
           connection->Open();
           return Expect(connection->GetHandle() != 0 && connection->GetRelease() == "46C", "open");
         });
       }},
      {"SystemInformation",
       [] {
         // The shared handle, not closed; the release known, so only the operation talks.
         auto connection = std::make_shared<CRfcConnection>();
         CRfcConnInfo info;
         info.release = "46C";
         connection->SetConnInfo(info);
         connection->AttachHandle(g_connection->GetHandle());
         return Step([connection] {
           connection->GetSystemInfo();
           const CRfcList<CRfcSimpleParam>& info = connection->GetSystemInfoList();
           return Expect(info.GetCount() == 8 && std::string(info.GetAt(0)->GetName()) == "SYSID", "system info");
         });
       }},
      {"MetadataDump", [] {
         auto order = std::make_shared<CRfcStructParam>("ORDER", 0, 0, nullptr, nullptr);
         CRfcFieldInfo fields[] = {Field("IDENT", 0, TYPE_CHAR, 10), Field("QTY", 1, TYPE_NUM, 6),
                                   Field("PRICE", 2, TYPE_BCD, 6)};
         order->AddFieldInfo(fields, 3);
         order->SetTypeName("ZORDERS");
         return Step([order] {
           CRfcMetaDump dump;
           order->Dump(dump, "IMPORT");
           // Two parameter lines, four type lines, six lines per field.
           return Expect(dump.GetLineCount() == 2 + 4 + 3 * 6 && dump.HasWrittenType("ZORDERS"), "dump");
         });
       }},
      {"ServerFunctionList", [] {
         auto functions = std::make_shared<std::vector<std::unique_ptr<NoOpServerFunc>>>();
         for (int i = 0; i < 12; ++i) {
           functions->push_back(std::make_unique<NoOpServerFunc>(("Z_NOOP_" + std::to_string(i)).c_str()));
         }
         return Step([functions] {
           CRfcServerApp app(nullptr);
           for (const auto& function : *functions) app.AddFunction(function.get());
           return Expect(app.GetFunctionCount() == 12 && app.FindFunction("Z_NOOP_11") == functions->back().get(),
                         "function list");
         });
       }},
      {"BatchFunction", Plain([] {
         CBatchServerFunc::DdColumns columns;
         columns[1] = std::make_unique<CSapColumn>("H_IDENT", 1, 0, TYPE_CHAR, 10, 0);
         columns[2] = std::make_unique<CSapColumn>("COUNT", 2, 10, TYPE_INT, 4, 0);
         columns[3] = std::make_unique<CSapColumn>("NOTE", 3, 14, TYPE_CHAR, 5, 0);
         CBatchServerFunc function(nullptr, "Z_SWEEP_BATCH", "ZSWEEP", columns, nullptr);
         return Expect(function.GetRowWidth() == 19 && function.GetTableParam()->GetLineLength() == 24,
                       "batch function");
       })},
  };
}

// One line per operation: the outcomes its failed allocations ended in.
TEST(AllocationSweepTest, EachAllocationFailsInTurnWithADefinedOutcome) {
  ASSERT_TRUE(LoadRfcLibrary(sapsim::testing::LibraryPath().c_str()));
  // Every failure path writes its trace lines too, into a folder of our own.
  const testutil::TempDir trace_dir;
  GetRfcTrace().SetDirectory(trace_dir.path());
  GetRfcTrace().SetTraceOn(1);
  // This thread's trace file exists before any plan: only the operations' allocations count.
  GetRfcTrace().WriteLine("allocation sweep");
  testutil::SapsimConnection system;
  ASSERT_NE(system.connection.GetHandle(), 0u);
  g_connection = &system.connection;
  std::string outcomes;
  for (const Operation& operation : Operations()) {
    SCOPED_TRACE(operation.name);
    ASSERT_EQ(Attempt(operation.prepare()), "") << "the operation fails without any fault";
    std::set<std::string> met;
    int index = 0;
    for (;; ++index) {
      ASSERT_LT(index, 5000) << "the operation never completes";
      Step faulted = operation.prepare();
      rfc::testing::FailAllocations(index, 1);
      const std::string outcome = Attempt(faulted);
      const bool reached = rfc::testing::PendingAllocationFaults() == 0;
      rfc::testing::ClearAllocationFaults();
      if (!reached) {
        EXPECT_EQ(outcome, "") << "allocation " << index << " was not reached, yet the operation failed";
        break;
      }
      met.insert(outcome);
      const Step again = operation.again_on_same ? faulted : operation.prepare();
      EXPECT_EQ(Attempt(again), "") << "after the failure of allocation " << index;
    }
    EXPECT_GT(index, 0) << "the operation allocates nothing through the library's allocator";
    outcomes += operation.name + std::string(":");
    for (const std::string& outcome : met) outcomes += " \"" + outcome + "\"";
    outcomes += "\n";
  }
  g_connection = nullptr;
  GetRfcTrace().SetTraceOn(0);
  EXPECT_TRUE(testutil::MatchesExpectedFile(outcomes, "tests/faults/expected/allocation_outcomes.txt"));
}

}  // namespace
}  // namespace faults
