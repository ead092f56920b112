// The sapsim program as users run it: serve with good and bad system files,
// and call against a registered server written here with the C interface.
// (The batch server end to end covers a call's rows, its exception and the
// refusal when nobody is registered.)

#include <algorithm>
#include <thread>

#include <gtest/gtest.h>

#include "tests/sapsim/support/library_test.h"

namespace sapsim::testing {
namespace {

const std::string kExamples = testutil::SourceDir() + "/examples/";

TEST(SapsimServe, RefusesBadStartsWithExitCodeTwoAndTheReason) {
  testutil::TempDir dir;
  const std::string file = dir.Write("bad.json", R"({"system_id": "DEV", "release": "46C",
    "structures": {"ZS": [{"name": "A", "type": "C", "length": 2}]},
    "tables": {"ZS": [{"A": "ok"}, {"A": "too long"}]}})");
  const struct {
    std::vector<std::string> arguments;
    std::string message;
  } cases[] = {{{"serve", "--system", file, "--port", "0"},
                "sapsim: " + file + ": /tables/ZS/1/A: \"too long\" does not fit into 2 characters\n"},
               {{"serve", "--system", dir.File("none.json")}, "none.json: cannot read: No such file or directory"},
               {{"serve", "--port", "0"}, "usage: sapsim serve --system FILE"},
               {{"serve", "--system", file, "--port", "70000"}, "--port wants a port number"},
               {{}, ""}};
  for (const auto& c : cases) {
    std::vector<std::string> command = {SapsimPath()};
    command.insert(command.end(), c.arguments.begin(), c.arguments.end());
    const testutil::RunResult result = testutil::RunCommand(command);
    EXPECT_EQ(2, result.exit_code) << c.message;
    EXPECT_NE(std::string::npos, result.err.find(c.message)) << result.err;
    EXPECT_EQ("", result.out);
  }
}

class SapsimCall : public LibraryTest {
 protected:
  void SetUp() override { Start(testutil::ReadBytes(kExamples + "system.json")); }
  testutil::RunResult Call(const std::string& structure, const std::string& csv, std::vector<std::string> more = {}) {
    std::vector<std::string> command = {SapsimPath(), "call", "--port", sapsim_->port_text(), "--program-id",
                                        "BATCHSRV", "--function", "Z_BATCH_ORDERS", "--structure", structure,
                                        "--csv", csv};
    command.insert(command.end(), more.begin(), more.end());
    return testutil::RunCommand(command);
  }
};

TEST_F(SapsimCall, RepeatPrintsOneSummaryLineAndASecondServeFindsThePortTaken) {
  const testutil::RunResult second = testutil::RunCommand(
      {SapsimPath(), "serve", "--system", kExamples + "system.json", "--port", sapsim_->port_text()});
  EXPECT_EQ(1, second.exit_code);
  EXPECT_NE(std::string::npos, second.err.find("cannot listen on 127.0.0.1:" + sapsim_->port_text())) << second.err;
  int calls = 0;
  NoArgs none;
  SetHandler("Z_BATCH_ORDERS", [&](ConnectionHandle h) {
    ++calls;
    return lib.RfcSendData(h, none.params, none.tables);
  });
  const ConnectionHandle handle = Accept("BATCHSRV");
  ASSERT_NE(0u, handle) << lib.LastError();
  std::thread server([&] { Serve(handle, 5); });
  const testutil::RunResult result = Call("ZBATCH_ORDER", kExamples + "batches/orders.csv", {"--repeat", "4"});
  // The other sample batch must fit the example system too.
  const testutil::RunResult customers = Call("ZBATCH_CUSTOMER", kExamples + "batches/customers.csv");
  server.join();
  EXPECT_EQ(0, result.exit_code) << result.err;
  EXPECT_EQ(0, customers.exit_code) << customers.err;
  EXPECT_EQ(0u, result.out.find("calls=4 seconds=")) << result.out;
  for (const char* k : {" calls_per_second=", " rows_per_second="}) EXPECT_NE(std::string::npos, result.out.find(k));
  EXPECT_EQ(1, std::count(result.out.begin(), result.out.end(), '\n'));
  EXPECT_EQ(5, calls);
}

TEST_F(SapsimCall, BadBatchesAndOptionsAreRefusedBeforeAnyCall) {
  const struct { std::string structure; std::string csv; int exit_code; const char* message; } cases[] = {
      {"ZBATCH_ORDER", dir_.Write("unknown.csv", "H_IDENT,COLOUR\nx,red\n"), 2,
       "line 1, column 2: unknown column \"COLOUR\" (not a field of ZBATCH_ORDER)"},
      {"ZBATCH_ORDER", dir_.Write("long.csv", "H_IDENT,T_IDENT\nH1,T1\nH2,T_IDENT_TOO_LONG\n"), 2,
       "line 3, column 2 (T_IDENT): value too long: 16 characters, the field holds 10"},
      {"ZBATCH_ORDER", dir_.Write("number.csv", "IDENT,QUANTITY\n1,12\n2,twelve\n"), 2,
       "line 3, column 2 (QUANTITY): 'twelve' is not a number"},
      {"ZBATCH_ORDER", dir_.File("absent.csv"), 2, "absent.csv: cannot read"},
      {"ZNOPE", kExamples + "batches/orders.csv", 1,
       "structure ZNOPE is not in the dictionary of system DEV"},
  };
  for (const auto& c : cases) {
    const testutil::RunResult result = Call(c.structure, c.csv);
    EXPECT_EQ(c.exit_code, result.exit_code) << c.message;
    EXPECT_NE(std::string::npos, result.err.find(c.message)) << result.err;
  }
  const testutil::RunResult usage = testutil::RunCommand({SapsimPath(), "call", "--port", sapsim_->port_text()});
  EXPECT_EQ(2, usage.exit_code);
  EXPECT_NE(std::string::npos, usage.err.find("--program-id is missing"));
}

}  // namespace
}  // namespace sapsim::testing
