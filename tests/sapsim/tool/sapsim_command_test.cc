// The sapsim program as users run it: serve with good and bad system files,
// and call against a registered server written here with the C interface.
// (The batch server end to end covers a call's rows, its exception and the
// refusal when nobody is registered.)

#include <thread>

#include <gtest/gtest.h>

#include "tests/sapsim/support/library_test.h"
#include "tests/support/expected_file.h"
#include "tests/support/text_placeholders.h"

namespace sapsim::testing {
namespace {

const std::string kExamples = testutil::SourceDir() + "/examples/";

// One run of sapsim as a transcript shows it.
std::string Sapsim(const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {SapsimPath()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const testutil::RunResult result = testutil::RunCommand(command);
  std::string line = "sapsim";
  for (const std::string& argument : arguments) line += " " + argument;
  return testutil::RunText(line, result.exit_code, result.out, result.err);
}

TEST(SapsimServe, RefusesBadStartsWithExitCodeTwoAndTheReason) {
  testutil::TempDir dir;
  const std::string file = dir.Write("bad.json", R"({"system_id": "DEV", "release": "46C",
    "structures": {"ZS": [{"name": "A", "type": "C", "length": 2}]},
    "tables": {"ZS": [{"A": "ok"}, {"A": "too long"}]}})");
  std::string text;
  for (const std::vector<std::string>& arguments : std::vector<std::vector<std::string>>{
           {"serve", "--system", file, "--port", "0"}, {"serve", "--system", dir.File("none.json")},
           {"serve", "--port", "0"}, {"serve", "--system", file, "--port", "70000"}, {}}) {
    text += Sapsim(arguments);
  }
  text = testutil::WithPlaceholders(text, {{testutil::Literal(dir.path()), "<dir>"}});
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/sapsim/expected/sapsim_serve_refusals.txt"));
}

class SapsimCall : public LibraryTest {
 protected:
  void SetUp() override { Start(testutil::ReadBytes(kExamples + "system.json")); }
  std::string Call(const std::string& structure, const std::string& csv, std::vector<std::string> more = {}) {
    std::vector<std::string> arguments = {"call", "--port", sapsim_->port_text(), "--program-id", "BATCHSRV",
                                          "--function", "Z_BATCH_ORDERS", "--structure", structure, "--csv", csv};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return Sapsim(arguments);
  }
};

// A repeated call prints one summary line; bad batches and options are
// refused before any call; a second serve finds the port taken.
TEST_F(SapsimCall, CallsRepeatsAndRefuses) {
  std::string text = Sapsim({"serve", "--system", kExamples + "system.json", "--port", sapsim_->port_text()});
  int calls = 0;
  NoArgs none;
  SetHandler("Z_BATCH_ORDERS", [&](ConnectionHandle h) {
    ++calls;
    return lib.RfcSendData(h, none.params, none.tables);
  });
  const ConnectionHandle handle = Accept("BATCHSRV");
  ASSERT_NE(0u, handle) << lib.LastError();
  std::thread server([&] { Serve(handle, 5); });
  text += Call("ZBATCH_ORDER", kExamples + "batches/orders.csv", {"--repeat", "4"});
  // The other sample batch must fit the example system too.
  text += Call("ZBATCH_CUSTOMER", kExamples + "batches/customers.csv");
  server.join();
  EXPECT_EQ(5, calls);
  text += Call("ZBATCH_ORDER", dir_.Write("unknown.csv", "H_IDENT,COLOUR\nx,red\n"));
  text += Call("ZBATCH_ORDER", dir_.Write("long.csv", "H_IDENT,T_IDENT\nH1,T1\nH2,T_IDENT_TOO_LONG\n"));
  text += Call("ZBATCH_ORDER", dir_.Write("number.csv", "IDENT,QUANTITY\n1,12\n2,twelve\n"));
  text += Call("ZBATCH_ORDER", dir_.File("absent.csv"));
  text += Call("ZNOPE", kExamples + "batches/orders.csv");
  text += Sapsim({"call", "--port", sapsim_->port_text()});
  text = testutil::WithPlaceholders(text, {{testutil::Literal(dir_.path()), "<dir>"},
                                           {testutil::Literal(kExamples), "<examples>/"},
                                           {"\\b" + sapsim_->port_text() + "\\b", "<port>"},
                                           {"(seconds|per_second)=[0-9.]+", "$1=<n>"}});
  EXPECT_TRUE(testutil::MatchesExpectedFile(text, "tests/sapsim/expected/sapsim_call.txt"));
}

}  // namespace
}  // namespace sapsim::testing
