// Faults the simulated system cannot produce, injected through a stand-in RFC
// library: a table whose description changes between two line reads, a line
// the library cannot give, registration answers with odd result codes.

#include <gtest/gtest.h>

#include "access/sap_table.h"
#include "app/gateway_connection.h"
#include "platform/dynamic_library.h"
#include "rfc/binding/rfc_binding.h"
#include "rfc/core/rfc_data.h"
#include "rfc/function/rfc_table_param.h"
#include "tests/access/fake_access_library.h"

namespace {

FakeAccessControls& Controls() {
  static FakeAccessControls* controls = [] {
    if (!LoadRfcLibrary(FAKE_ACCESS_LIBRARY)) return static_cast<FakeAccessControls*>(nullptr);
    // The loader hands out the same library again; it stays loaded.
    platform::LibraryHandle library = platform::LoadDynamicLibrary(FAKE_ACCESS_LIBRARY);
    auto get = reinterpret_cast<FakeAccessControls_t>(
        platform::GetLibrarySymbol(library, "FakeAccessControlsOf"));
    return get != nullptr ? get() : nullptr;
  }();
  if (controls == nullptr) throw std::runtime_error("cannot load " FAKE_ACCESS_LIBRARY);
  return *controls;
}

class AccessFaultTest : public ::testing::Test {
 protected:
  void SetUp() override { Controls() = FakeAccessControls{}; }
  void TearDown() override { Controls() = FakeAccessControls{}; }

  // A table of CHAR fields A and B with `lines` lines.
  static std::unique_ptr<CRfcTableParam> TwoColumnTable(int lines) {
    auto table = std::make_unique<CRfcTableParam>("T", 0, 0, 0, nullptr, "");
    CRfcFieldInfo fields[2] = {};
    SetFieldName(fields[0], "A");
    SetFieldName(fields[1], "B");
    for (int i = 0; i < 2; ++i) {
      fields[i].column = i;
      fields[i].type = TYPE_CHAR;
      fields[i].length = 2;
    }
    table->AddFieldInfo(fields, 2);
    table->Create();
    for (int line = 0; line < lines; ++line) {
      table->GotoLine(line);
      table->GetData(table->GetCurrentLine(), 0) = "a";
      table->GetData(table->GetCurrentLine(), 1) = "b";
    }
    return table;
  }
};

struct Widening {
  CRfcTableParam* table;
  unsigned at_line;
};

// Describes a third column when line `at_line` is read. The whole line is
// handed over again, as AddFieldInfo lays out only what it is given.
void WidenTable(void* context, unsigned line) {
  auto* widening = static_cast<Widening*>(context);
  if (line != widening->at_line) return;
  CRfcFieldInfo fields[3] = {};
  const char* names[] = {"A", "B", "C"};
  for (int i = 0; i < 3; ++i) {
    SetFieldName(fields[i], names[i]);
    fields[i].column = i;
    fields[i].type = TYPE_CHAR;
    fields[i].length = i < 2 ? 2 : 1;
  }
  widening->table->AddFieldInfo(fields, 3);
}

TEST_F(AccessFaultTest, LinesWithDifferentFieldCountsAbandonTheTable) {
  auto table = TwoColumnTable(3);
  Widening widening{table.get(), 2};
  Controls().on_get_line = WidenTable;
  Controls().context = &widening;
  try {
    CSapTable text(table.get());
    FAIL() << "lines of two widths made one table";
  } catch (const std::string& message) {
    EXPECT_EQ("Different number of cols in rows found!", message);
  }
  EXPECT_EQ(3, table->GetFieldCount());
}

TEST_F(AccessFaultTest, AWidthChangeBeforeTheFirstLineIsNoFault) {
  auto table = TwoColumnTable(2);
  Widening widening{table.get(), 1};
  Controls().on_get_line = WidenTable;
  Controls().context = &widening;
  CSapTable text(table.get());
  EXPECT_EQ(3, text.GetColumnCount());
  EXPECT_EQ(2u, text.GetRowCount());
}

TEST_F(AccessFaultTest, ALineTheLibraryCannotGiveIsTheClassLibrarysError) {
  auto table = TwoColumnTable(3);
  Controls().missing_line = 2;
  try {
    CSapTable text(table.get());
    FAIL() << "a missing line was read";
  } catch (const char* text) {
    EXPECT_STREQ("ItGetLine Failure!", text);
  }
}

TEST_F(AccessFaultTest, RegistrationAnswersAreReadFromTheCountsAlone) {
  CGatewayConnection gateway("BATCHSRV", "gwhost", "sapgw00");

  // A failing call that still reports registrations counts as registered.
  Controls().write_counts = 1;
  Controls().check_result = RFC_FAILURE;
  Controls().check_total = 2;
  EXPECT_TRUE(gateway.IsRegistered());
  Controls().check_result = RFC_OK;
  Controls().check_total = 0;
  EXPECT_FALSE(gateway.IsRegistered());

  Controls().cancel_result = RFC_FAILURE;
  Controls().cancel_cancelled = 1;
  EXPECT_TRUE(gateway.CancelRegistration());

  // A library that writes nothing leaves the counts at 0.
  Controls().write_counts = 0;
  Controls().check_result = RFC_OK;
  Controls().cancel_result = RFC_OK;
  EXPECT_FALSE(gateway.IsRegistered());
  EXPECT_FALSE(gateway.CancelRegistration());
}

TEST_F(AccessFaultTest, ARefusedAcceptIsThrownAsTheLibrarysRecord) {
  CGatewayConnection gateway("BATCHSRV", "gwhost", "sapgw00");
  try {
    gateway.Register();
    FAIL() << "the stand-in accepted a registration";
  } catch (const RFC_ERROR_INFO& error) {
    EXPECT_STREQ("FAKE", error.key);
  }
  EXPECT_EQ(0u, gateway.GetHandle());
}

}  // namespace
