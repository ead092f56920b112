// The sapsim program as users run it: serve with good and bad system files,
// and call against a registered server written here with the C interface.

#include <algorithm>
#include <atomic>
#include <cstring>
#include <thread>

#include <gtest/gtest.h>

#include "tests/sapsim/support/rfc_calls.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/sapsim/support/server_harness.h"

namespace sapsim::testing {
namespace {

TEST(SapsimServe, RefusesABadSystemFileWithFilePlaceAndReason) {
  TempDir dir;
  std::string file = dir.Write("bad.json", R"({"system_id": "DEV", "release": "46C",
    "structures": {"ZS": [{"name": "A", "type": "C", "length": 2}]},
    "tables": {"ZS": [{"A": "ok"}, {"A": "too long"}]}})");
  RunResult result = RunCommand({SapsimPath(), "serve", "--system", file, "--port", "0"});
  EXPECT_EQ(2, result.exit_code);
  EXPECT_EQ("sapsim: " + file + ": /tables/ZS/1/A: \"too long\" does not fit into 2 characters\n", result.err);
  EXPECT_EQ("", result.out);

  RunResult missing = RunCommand({SapsimPath(), "serve", "--system", dir.path() + "/none.json"});
  EXPECT_EQ(2, missing.exit_code);
  EXPECT_NE(std::string::npos, missing.err.find("none.json: cannot read: No such file or directory"));

  RunResult usage = RunCommand({SapsimPath(), "serve", "--port", "0"});
  EXPECT_EQ(2, usage.exit_code);
  EXPECT_NE(std::string::npos, usage.err.find("usage: sapsim serve --system FILE"));
  RunResult bad_port = RunCommand({SapsimPath(), "serve", "--system", file, "--port", "70000"});
  EXPECT_EQ(2, bad_port.exit_code);
  EXPECT_NE(std::string::npos, bad_port.err.find("--port wants a port number"));
  EXPECT_EQ(2, RunCommand({SapsimPath()}).exit_code);
}

TEST(SapsimServe, PortInUseIsReported) {
  SapsimProcess::Options options;
  options.system_file = SourceDir() + "/examples/system.json";
  SapsimProcess first(options);
  RunResult second = RunCommand({SapsimPath(), "serve", "--system", options.system_file, "--port", first.port_text()});
  EXPECT_EQ(1, second.exit_code);
  EXPECT_NE(std::string::npos, second.err.find("cannot listen on 127.0.0.1:" + first.port_text())) << second.err;
  EXPECT_EQ(0, first.Stop());
}

// The batch line of ZBATCH_ORDER as the server in this test receives it:
// three fields only, raw as CHAR.
struct ReceivedOrder {
  std::string customer;
  std::string note;
  double weight;
};

class SapsimCall : public ::testing::Test {
 protected:
  void SetUp() override {
    SapsimProcess::Options options;
    options.system_file = SourceDir() + "/examples/system.json";
    sapsim_ = std::make_unique<SapsimProcess>(options);
  }
  void TearDown() override {
    stop_ = true;
    if (server_.joinable()) server_.join();
    if (handle_ != 0) lib.RfcClose(handle_);
    EXPECT_EQ(0, sapsim_->Stop()) << sapsim_->Log();
  }

  // Registers BATCHSRV and serves Z_BATCH_ORDERS in the background, keeping
  // the customer and note of every line received.
  void StartServer() {
    RfcTypeElement elements[] = {{"NOTE", RFCTYPE_CHAR, 60, 0, 0},
                                 {"WEIGHT", RFCTYPE_FLOAT, 8, 0, 0},
                                 {"CUSTOMER", RFCTYPE_CHAR, 30, 0, 0}};
    ASSERT_EQ(RFC_OK, lib.RfcInstallStructure("BATCH_TABLE", elements, 3, &line_type_));
    SetHandler("Z_BATCH_ORDERS", [this](ConnectionHandle h) {
      RfcParameterEntry no_imports[] = {EndParam()};
      RfcTableEntry tables[] = {Table("BATCH_TABLE", line_type_, 104), EndTable()};
      if (lib.RfcGetData(h, no_imports, tables) != RFC_OK) return lib.RfcRaise(h, "GET_DATA_FAILED");
      for (unsigned n = 1; n <= lib.ItFill(tables[0].handle); ++n) {
        const char* line = static_cast<const char*>(lib.ItGetLine(tables[0].handle, n));
        ReceivedOrder order;
        order.note = LineText(line, 0, 60);
        std::memcpy(&order.weight, line + 64, 8);
        order.customer = LineText(line, 72, 30);
        received_.push_back(order);
      }
      ++calls_;
      int32_t rc = 1;
      RfcParameterEntry exports[] = {Param("BATCH_RC", RFCTYPE_INT, &rc, 4), EndParam()};
      RfcTableEntry none[] = {EndTable()};
      return lib.RfcSendData(h, exports, none);
    });
    SetHandler("Z_BATCH_REFUSED", [this](ConnectionHandle h) { return lib.RfcRaise(h, "BATCH_NOT_WANTED"); });
    handle_ = Register("BATCHSRV", sapsim_->port());
    ASSERT_NE(0u, handle_) << lib.LastError();
    server_ = std::thread([this] {
      while (!stop_) {
        int rc = lib.RfcListen(handle_);
        if (rc == RFC_OK) {
          if (lib.RfcDispatch(handle_) != RFC_OK) return;
        } else if (rc == RFC_NOTHING_WAITING) {
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
        } else {
          return;
        }
      }
    });
  }

  RunResult Call(const std::string& function, const std::string& csv, std::vector<std::string> more = {}) {
    std::vector<std::string> command = {SapsimPath(), "call", "--port", sapsim_->port_text(), "--program-id",
                                        "BATCHSRV", "--function", function, "--structure", "ZBATCH_ORDER",
                                        "--csv", csv};
    command.insert(command.end(), more.begin(), more.end());
    return RunCommand(command);
  }

  const RfcLibrary& lib = RfcLibrary::Get();
  TempDir dir_;
  std::unique_ptr<SapsimProcess> sapsim_;
  ConnectionHandle handle_ = 0;
  RfcTypeHandle line_type_ = -1;
  std::thread server_;
  std::atomic<bool> stop_{false};
  std::atomic<int> calls_{0};
  std::vector<ReceivedOrder> received_;
};

TEST_F(SapsimCall, SendsTheBatchAndPrintsTheReturnCode) {
  StartServer();
  RunResult result = Call("Z_BATCH_ORDERS", SourceDir() + "/examples/batches/orders.csv");
  EXPECT_EQ(0, result.exit_code) << result.err;
  EXPECT_EQ("BATCH_RC=1\n", result.out);
  stop_ = true;
  server_.join();
  ASSERT_EQ(3u, received_.size());
  EXPECT_EQ("Smith & Sons", received_[0].customer);
  EXPECT_EQ("Deliver <before> noon, \"urgent\"", received_[0].note);
  EXPECT_DOUBLE_EQ(2.5, received_[0].weight);
  EXPECT_EQ("O'Brien Ltd.", received_[1].customer);
  EXPECT_EQ("Return of goods > 20 kg", received_[1].note);
  EXPECT_EQ("  Blank Padded", received_[2].customer);  // leading blanks are data
  EXPECT_EQ("  leading and trailing blanks", received_[2].note);
}

TEST_F(SapsimCall, RepeatPrintsOneSummaryLine) {
  StartServer();
  RunResult result = Call("Z_BATCH_ORDERS", SourceDir() + "/examples/batches/orders.csv", {"--repeat", "4"});
  EXPECT_EQ(0, result.exit_code) << result.err;
  EXPECT_EQ(0u, result.out.find("calls=4 seconds="));
  EXPECT_NE(std::string::npos, result.out.find(" calls_per_second="));
  EXPECT_NE(std::string::npos, result.out.find(" rows_per_second="));
  EXPECT_EQ(1, std::count(result.out.begin(), result.out.end(), '\n'));
  EXPECT_EQ(4, calls_.load());
}

TEST_F(SapsimCall, RaisedExceptionIsPrintedAndFails) {
  StartServer();
  RunResult result = Call("Z_BATCH_REFUSED", SourceDir() + "/examples/batches/orders.csv");
  EXPECT_EQ(1, result.exit_code);
  EXPECT_EQ("EXCEPTION=BATCH_NOT_WANTED\n", result.out);
  EXPECT_NE(std::string::npos, result.err.find("raised exception BATCH_NOT_WANTED"));
}

TEST_F(SapsimCall, NoRegisteredServerIsAClearFailure) {
  RunResult result = Call("Z_BATCH_ORDERS", SourceDir() + "/examples/batches/orders.csv");
  EXPECT_EQ(1, result.exit_code);
  EXPECT_NE(std::string::npos, result.err.find("no RFC server program is registered under program id BATCHSRV"))
      << result.err;
}

TEST_F(SapsimCall, BadCsvNamesLineAndColumn) {
  std::string unknown = dir_.Write("unknown.csv", "H_IDENT,COLOUR\nx,red\n");
  RunResult result = Call("Z_BATCH_ORDERS", unknown);
  EXPECT_EQ(2, result.exit_code);
  EXPECT_NE(std::string::npos, result.err.find("line 1, column 2: unknown column \"COLOUR\"")) << result.err;

  std::string too_long = dir_.Write("long.csv", "H_IDENT,T_IDENT\nH1,T1\nH2,T_IDENT_TOO_LONG\n");
  result = Call("Z_BATCH_ORDERS", too_long);
  EXPECT_EQ(2, result.exit_code);
  EXPECT_NE(std::string::npos, result.err.find("line 3, column 2 (T_IDENT): value too long")) << result.err;

  std::string not_number = dir_.Write("number.csv", "IDENT,QUANTITY\n1,12\n2,twelve\n");
  result = Call("Z_BATCH_ORDERS", not_number);
  EXPECT_EQ(2, result.exit_code);
  EXPECT_NE(std::string::npos, result.err.find("line 3, column 2 (QUANTITY): 'twelve' is not a number")) << result.err;

  result = Call("Z_BATCH_ORDERS", dir_.path() + "/absent.csv");
  EXPECT_EQ(2, result.exit_code);
  EXPECT_NE(std::string::npos, result.err.find("absent.csv: cannot read"));
}

TEST_F(SapsimCall, UnknownStructureAndMissingOptions) {
  RunResult result = RunCommand({SapsimPath(), "call", "--port", sapsim_->port_text(), "--program-id", "BATCHSRV",
                          "--function", "Z", "--structure", "ZNOPE", "--csv",
                          SourceDir() + "/examples/batches/orders.csv"});
  EXPECT_EQ(1, result.exit_code);
  EXPECT_NE(std::string::npos, result.err.find("structure ZNOPE is not in the dictionary of system DEV"));
  RunResult usage = RunCommand({SapsimPath(), "call", "--port", sapsim_->port_text()});
  EXPECT_EQ(2, usage.exit_code);
  EXPECT_NE(std::string::npos, usage.err.find("--program-id is missing"));
}

}  // namespace
}  // namespace sapsim::testing
