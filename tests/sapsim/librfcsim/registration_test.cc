// Registration check and cancel at the gateway, and what a cancelled server sees.

#include <cstring>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "tests/sapsim/support/library_test.h"
#include "tests/support/polling.h"

namespace sapsim::testing {
namespace {

class RegistrationTest : public LibraryTest {
 protected:
  void SetUp() override { Start(); }
  struct Counts {
    int rc, total, initialising, ready, busy;
    ErrorInfoEx error;
  };
  Counts Check(const char* program_id, const std::string& service = "") {
    Counts c{};
    c.total = c.initialising = c.ready = c.busy = -1;
    const std::string port = service.empty() ? sapsim_->port_text() : service;
    c.rc = lib.RfcCheckRegisterServer(program_id, "127.0.0.1", port.c_str(), &c.total, &c.initialising, &c.ready,
                                      &c.busy, &c.error);
    return c;
  }
};

TEST_F(RegistrationTest, CheckCountsReadyAndBusyRegistrationsOfAProgramId) {
  EXPECT_EQ(0, Check("BATCHSRV").total);
  const ConnectionHandle first = Accept("BATCHSRV");
  const ConnectionHandle second = Accept("BATCHSRV");
  ASSERT_NE(0u, first);
  ASSERT_NE(0u, second);
  ASSERT_NE(0u, Accept("OTHER"));
  const Counts two = Check("BATCHSRV");
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
    NoArgs none;
    return lib.RfcSendData(h, none.params, none.tables);
  });
  std::future<CallOutcome> outcome = CallLater("Z_COUNT", "", "", "BATCHSRV");
  std::thread serve_first([&] { Serve(first, 1, 2000); });
  std::thread serve_second([&] { Serve(second, 1, 2000); });
  EXPECT_EQ(wire::ReplyStatus::kOk, outcome.get().reply.status);
  serve_first.join();
  serve_second.join();
  EXPECT_EQ(2, during.total);
  EXPECT_EQ(1, during.busy);
  EXPECT_EQ(1, during.ready);

  // The gateway notices a closed registration at its own pace.
  lib.RfcClose(first);
  EXPECT_TRUE(testutil::Eventually([&] { return Check("BATCHSRV").total == 1; }));
}

TEST_F(RegistrationTest, CancelClosesTheServersWithGroup109) {
  const ConnectionHandle in_listen = Accept("BATCHSRV");
  const ConnectionHandle in_dispatch = Accept("BATCHSRV");
  const ConnectionHandle unrelated = Accept("OTHER");
  ASSERT_NE(0u, in_listen);
  ASSERT_NE(0u, in_dispatch);
  ASSERT_NE(0u, unrelated);
  std::future<std::pair<int, int>> dispatched = std::async(std::launch::async, [&] {
    const int rc = lib.RfcDispatch(in_dispatch);  // blocks until something arrives
    return std::make_pair(rc, lib.LastErrorGroup());
  });
  EXPECT_EQ(RFC_NOTHING_WAITING, lib.RfcListen(in_listen));

  int total = -1, cancelled = -1;
  ErrorInfoEx error{};
  const std::string port = sapsim_->port_text();
  ASSERT_EQ(RFC_OK, lib.RfcCancelRegisterServer("BATCHSRV", "127.0.0.1", port.c_str(), &total, &cancelled, &error));
  EXPECT_EQ(2, total);
  EXPECT_EQ(2, cancelled);

  ASSERT_EQ(std::future_status::ready, dispatched.wait_for(std::chrono::seconds(20)));
  const std::pair<int, int> outcome = dispatched.get();
  EXPECT_EQ(RFC_CLOSED, outcome.first);
  EXPECT_EQ(RFC_ERROR_GROUP_CANCELLED, outcome.second);
  EXPECT_TRUE(testutil::Eventually([&] { return lib.RfcListen(in_listen) != RFC_NOTHING_WAITING; }));
  EXPECT_EQ(RFC_CLOSED, lib.RfcListen(in_listen));
  ErrorInfoEx why{};
  ASSERT_EQ(RFC_OK, lib.RfcLastErrorEx(&why));
  EXPECT_EQ(RFC_ERROR_GROUP_CANCELLED, why.group);
  EXPECT_NE(nullptr, std::strstr(why.message, "cancelled"));
  // Asked again, a cancelled connection stays closed with the same reason.
  EXPECT_EQ(RFC_CLOSED, lib.RfcDispatch(in_listen));
  EXPECT_EQ(RFC_ERROR_GROUP_CANCELLED, lib.LastErrorGroup());

  EXPECT_EQ(0, Check("BATCHSRV").total);
  EXPECT_EQ(1, Check("OTHER").total);
  EXPECT_EQ(RFC_NOTHING_WAITING, lib.RfcListen(unrelated));
  EXPECT_NE(std::string::npos, sapsim_->Log().find("cancelled 2 registration(s) of program BATCHSRV"));
}

TEST_F(RegistrationTest, UnreachableGatewayFillsTheErrorRecordAndZeroCounts) {
  const std::string closed = std::to_string(UnusedPort());
  const Counts counts = Check("BATCHSRV", closed);
  EXPECT_EQ(RFC_FAILURE, counts.rc);
  EXPECT_EQ(0, counts.total);
  EXPECT_EQ(0, counts.ready);
  EXPECT_EQ(101, counts.error.group);
  EXPECT_NE(nullptr, std::strstr(counts.error.message, ("127.0.0.1:" + closed).c_str())) << counts.error.message;
  int total = 5, cancelled = 5;
  ErrorInfoEx error{};
  EXPECT_EQ(RFC_FAILURE,
            lib.RfcCancelRegisterServer("BATCHSRV", "127.0.0.1", closed.c_str(), &total, &cancelled, &error));
  EXPECT_EQ(0, cancelled);
  EXPECT_EQ(RFC_FAILURE,
            lib.RfcCheckRegisterServer("BATCHSRV", "", "sapgw00", &total, nullptr, nullptr, nullptr, &error));
  EXPECT_NE(nullptr, std::strstr(error.message, "gateway host is empty"));
}

}  // namespace
}  // namespace sapsim::testing
