#include "platform/thread.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "platform/event.h"

namespace {

using platform::Event;
using platform::Thread;
using platform::WaitResult;

struct Gate {
  std::unique_ptr<Event> go = Event::Create("", false);
  std::unique_ptr<Event> done = Event::Create("", false);
  uint32_t result = 0;
  std::atomic<uint32_t> thread_id{0};
};

uint32_t WaitForGate(void* arg) {
  auto* gate = static_cast<Gate*>(arg);
  gate->thread_id = platform::CurrentThreadId();
  gate->go->Wait(600000);
  gate->done->Set();
  return gate->result;
}

TEST(ThreadTest, ExitCodeIsStillActiveUntilTheEndThenTheResult) {
  Gate gate;
  gate.result = 42;
  auto thread = Thread::Start(WaitForGate, &gate);
  ASSERT_NE(thread, nullptr);
  uint32_t code = 0;
  ASSERT_TRUE(thread->GetExitCode(&code));
  EXPECT_EQ(code, platform::kStillActive);
  EXPECT_FALSE(thread->Join(1)) << "the thread waits for the gate";
  EXPECT_FALSE(thread->Join(20));
  ASSERT_TRUE(thread->GetExitCode(&code));
  EXPECT_EQ(code, platform::kStillActive);

  gate.go->Set();
  EXPECT_TRUE(thread->Join(600000));
  ASSERT_TRUE(thread->GetExitCode(&code));
  EXPECT_EQ(code, 42u);
  EXPECT_TRUE(thread->Join(0)) << "joining an ended thread again answers at once";
  EXPECT_FALSE(thread->GetExitCode(nullptr));
}

// The thread owns its share of the gate, so the gate outlives whichever of
// the test and the detached thread finishes last.
uint32_t WaitForSharedGate(void* arg) {
  std::unique_ptr<std::shared_ptr<Gate>> gate(static_cast<std::shared_ptr<Gate>*>(arg));
  return WaitForGate(gate->get());
}

TEST(ThreadTest, DroppingTheHandleLetsTheThreadRunOn) {
  auto gate = std::make_shared<Gate>();
  auto thread = Thread::Start(WaitForSharedGate, new std::shared_ptr<Gate>(gate));
  ASSERT_NE(thread, nullptr);
  thread.reset();
  EXPECT_EQ(gate->done->Wait(0), WaitResult::kTimeout);
  gate->go->Set();
  EXPECT_EQ(gate->done->Wait(600000), WaitResult::kSignaled) << "the thread went on to its end";
}

TEST(ThreadTest, ThreadIdsAreTheSystemsAndDifferPerThread) {
  EXPECT_EQ(platform::CurrentThreadId(), static_cast<uint32_t>(getpid()))
      << "the main thread's id is the process id";
  EXPECT_EQ(platform::CurrentThreadId(), static_cast<uint32_t>(syscall(SYS_gettid)));
  Gate gate;
  gate.go->Set();
  auto thread = Thread::Start(WaitForGate, &gate);
  ASSERT_NE(thread, nullptr);
  ASSERT_TRUE(thread->Join(600000));
  EXPECT_NE(gate.thread_id.load(), 0u);
  EXPECT_NE(gate.thread_id.load(), platform::CurrentThreadId());
}

TEST(ThreadTest, SeveralThreadsMayJoinOneHandle) {
  Gate gate;
  gate.result = 7;
  auto thread = Thread::Start(WaitForGate, &gate);
  ASSERT_NE(thread, nullptr);
  std::atomic<int> joined{0};
  std::vector<std::thread> joiners;
  for (int i = 0; i < 4; ++i) {
    joiners.emplace_back([&] {
      if (thread->Join(600000)) ++joined;
    });
  }
  gate.go->Set();
  for (auto& joiner : joiners) joiner.join();
  EXPECT_EQ(joined.load(), 4);
  uint32_t code = 0;
  ASSERT_TRUE(thread->GetExitCode(&code));
  EXPECT_EQ(code, 7u);
}

TEST(ThreadTest, AnExitCodeOfStillActiveIsReportedAsItIs) {
  Gate gate;
  gate.go->Set();
  gate.result = platform::kStillActive;
  auto thread = Thread::Start(WaitForGate, &gate);
  ASSERT_NE(thread, nullptr);
  ASSERT_TRUE(thread->Join(600000));
  uint32_t code = 0;
  ASSERT_TRUE(thread->GetExitCode(&code));
  EXPECT_EQ(code, platform::kStillActive);
}

TEST(ThreadTest, NoProcedureNoThread) { EXPECT_EQ(Thread::Start(nullptr, nullptr), nullptr); }

}  // namespace
