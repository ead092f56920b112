// Registration check and cancel at the gateway, and what a cancelled server sees.

#include <cstring>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "tests/sapsim/support/rfc_calls.h"
#include "tests/sapsim/support/rfc_library.h"
#include "tests/sapsim/support/sap_caller.h"
#include "tests/sapsim/support/sapsim_process.h"
#include "tests/sapsim/support/server_harness.h"
#include "tests/sapsim/support/system_files.h"

namespace sapsim::testing {
namespace {

class RegistrationTest : public ::testing::Test {
 protected:
  void SetUp() override {
    SapsimProcess::Options options;
    options.system_file = dir_.Write("system.json", SmallSystem());
    sapsim_ = std::make_unique<SapsimProcess>(options);
    service_ = sapsim_->port_text();
  }
  void TearDown() override {
    for (ConnectionHandle handle : handles_) lib.RfcClose(handle);
    EXPECT_EQ(0, sapsim_->Stop()) << sapsim_->Log();
  }
  ConnectionHandle Accept(const std::string& program_id) {
    ConnectionHandle handle = Register(program_id, sapsim_->port());
    if (handle != 0) handles_.push_back(handle);
    return handle;
  }
  struct Counts {
    int rc, total, initialising, ready, busy;
    ErrorInfoEx error;
  };
  Counts Check(const char* program_id) {
    Counts c{};
    c.total = c.initialising = c.ready = c.busy = -1;
    c.rc = lib.RfcCheckRegisterServer(program_id, "127.0.0.1", service_.c_str(), &c.total, &c.initialising, &c.ready,
                                      &c.busy, &c.error);
    return c;
  }

  const RfcLibrary& lib = RfcLibrary::Get();
  TempDir dir_;
  std::unique_ptr<SapsimProcess> sapsim_;
  std::string service_;
  std::vector<ConnectionHandle> handles_;
};

TEST_F(RegistrationTest, CheckCountsTheRegistrationsOfAProgramId) {
  Counts none = Check("BATCHSRV");
  EXPECT_EQ(RFC_OK, none.rc);
  EXPECT_EQ(0, none.total);
  ASSERT_NE(0u, Accept("BATCHSRV"));
  ASSERT_NE(0u, Accept("BATCHSRV"));
  ASSERT_NE(0u, Accept("OTHER"));
  Counts two = Check("BATCHSRV");
  EXPECT_EQ(RFC_OK, two.rc);
  EXPECT_EQ(2, two.total);
  EXPECT_EQ(2, two.ready);
  EXPECT_EQ(0, two.busy);
  EXPECT_EQ(0, two.initialising);
  EXPECT_EQ(0, two.error.group);

  // While one serves a call it counts as busy.
  Counts during{};
  SetHandler("Z_COUNT", [&](ConnectionHandle h) {
    during = Check("BATCHSRV");
    RfcParameterEntry none_params[] = {EndParam()};
    RfcTableEntry no_tables[] = {EndTable()};
    return lib.RfcSendData(h, none_params, no_tables);
  });
  uint16_t port = sapsim_->port();
  std::future<CallOutcome> outcome =
      std::async(std::launch::async, [port] { return SapCaller(port).Call("BATCHSRV", "Z_COUNT"); });
  std::thread first([&] { Serve(handles_[0], 1, 2000); });
  std::thread second([&] { Serve(handles_[1], 1, 2000); });
  EXPECT_EQ(wire::ReplyStatus::kOk, outcome.get().reply.status);
  first.join();
  second.join();
  EXPECT_EQ(2, during.total);
  EXPECT_EQ(1, during.busy);
  EXPECT_EQ(1, during.ready);

  lib.RfcClose(handles_[0]);
  handles_.erase(handles_.begin());
  int total = -1;
  for (int i = 0; i < 2000 && total != 1; ++i) {  // the gateway notices the end at its own pace
    total = Check("BATCHSRV").total;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(1, total);
}

TEST_F(RegistrationTest, CancelClosesTheServersWithGroup109) {
  ConnectionHandle waiting_in_listen = Accept("BATCHSRV");
  ConnectionHandle waiting_in_dispatch = Accept("BATCHSRV");
  ConnectionHandle unrelated = Accept("OTHER");
  ASSERT_NE(0u, waiting_in_listen);
  ASSERT_NE(0u, waiting_in_dispatch);
  ASSERT_NE(0u, unrelated);
  std::promise<std::pair<int, int>> dispatch_result;
  std::thread dispatcher([&] {
    int rc = lib.RfcDispatch(waiting_in_dispatch);  // blocks until something arrives
    dispatch_result.set_value({rc, lib.LastErrorGroup()});
  });
  EXPECT_EQ(RFC_NOTHING_WAITING, lib.RfcListen(waiting_in_listen));

  int total = -1;
  int cancelled = -1;
  ErrorInfoEx error{};
  ASSERT_EQ(RFC_OK, lib.RfcCancelRegisterServer("BATCHSRV", "127.0.0.1", service_.c_str(), &total, &cancelled, &error));
  EXPECT_EQ(2, total);
  EXPECT_EQ(2, cancelled);

  std::future<std::pair<int, int>> dispatched = dispatch_result.get_future();
  ASSERT_EQ(std::future_status::ready, dispatched.wait_for(std::chrono::seconds(20)));
  dispatcher.join();
  std::pair<int, int> outcome = dispatched.get();
  EXPECT_EQ(RFC_CLOSED, outcome.first);
  EXPECT_EQ(RFC_ERROR_GROUP_CANCELLED, outcome.second);

  int rc = RFC_NOTHING_WAITING;
  for (int i = 0; i < 5000 && rc == RFC_NOTHING_WAITING; ++i) {
    rc = lib.RfcListen(waiting_in_listen);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(RFC_CLOSED, rc);
  ErrorInfoEx why{};
  ASSERT_EQ(RFC_OK, lib.RfcLastErrorEx(&why));
  EXPECT_EQ(RFC_ERROR_GROUP_CANCELLED, why.group);
  EXPECT_NE(nullptr, std::strstr(why.message, "cancelled"));
  // Asked again, a cancelled connection stays closed with the same reason.
  EXPECT_EQ(RFC_CLOSED, lib.RfcDispatch(waiting_in_listen));
  EXPECT_EQ(RFC_ERROR_GROUP_CANCELLED, lib.LastErrorGroup());

  EXPECT_EQ(0, Check("BATCHSRV").total);
  EXPECT_EQ(1, Check("OTHER").total);
  EXPECT_EQ(RFC_NOTHING_WAITING, lib.RfcListen(unrelated));
  EXPECT_NE(std::string::npos, sapsim_->Log().find("cancelled 2 registration(s) of program BATCHSRV"));
}

TEST_F(RegistrationTest, DispatchCancelledWhileWaitingReportsGroup109) {
  ConnectionHandle handle = Accept("WAITER");
  ASSERT_NE(0u, handle);
  std::future<std::pair<int, int>> result = std::async(std::launch::async, [&] {
    int rc = lib.RfcDispatch(handle);
    return std::make_pair(rc, lib.LastErrorGroup());
  });
  int total = 0;
  int cancelled = 0;
  for (int i = 0; i < 2000 && cancelled == 0; ++i) {
    ASSERT_EQ(RFC_OK, lib.RfcCancelRegisterServer("WAITER", "127.0.0.1", service_.c_str(), &total, &cancelled, nullptr));
  }
  ASSERT_EQ(1, cancelled);
  ASSERT_EQ(std::future_status::ready, result.wait_for(std::chrono::seconds(20)));
  auto [rc, group] = result.get();
  EXPECT_EQ(RFC_CLOSED, rc);
  EXPECT_EQ(RFC_ERROR_GROUP_CANCELLED, group);
}

TEST_F(RegistrationTest, UnreachableGatewayFillsTheErrorRecordAndZeroCounts) {
  std::string closed = std::to_string(UnusedPort());
  int total = 5, initialising = 5, ready = 5, busy = 5;
  ErrorInfoEx error{};
  EXPECT_EQ(RFC_FAILURE, lib.RfcCheckRegisterServer("BATCHSRV", "127.0.0.1", closed.c_str(), &total, &initialising,
                                                     &ready, &busy, &error));
  EXPECT_EQ(0, total);
  EXPECT_EQ(0, ready);
  EXPECT_EQ(101, error.group);
  EXPECT_NE(nullptr, std::strstr(error.message, ("127.0.0.1:" + closed).c_str())) << error.message;
  int cancelled = 5;
  EXPECT_EQ(RFC_FAILURE, lib.RfcCancelRegisterServer("BATCHSRV", "127.0.0.1", closed.c_str(), &total, &cancelled, &error));
  EXPECT_EQ(0, cancelled);
  EXPECT_EQ(RFC_FAILURE, lib.RfcCheckRegisterServer("BATCHSRV", "", "sapgw00", &total, nullptr, nullptr, nullptr, &error));
  EXPECT_NE(nullptr, std::strstr(error.message, "gateway host is empty"));
}

}  // namespace
}  // namespace sapsim::testing
