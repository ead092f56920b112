// Threads and re-entrant critical sections.

#include "platform/thread.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "platform/critical_section.h"
#include "platform/event.h"

namespace {

using platform::Event;
using platform::Thread;

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

// The thread owns its share of the gate, which outlives whichever of the
// test and the detached thread finishes last.
uint32_t WaitForSharedGate(void* arg) {
  std::unique_ptr<std::shared_ptr<Gate>> gate(static_cast<std::shared_ptr<Gate>*>(arg));
  return WaitForGate(gate->get());
}

TEST(ThreadTest, ExitCodeJoinIdsAndDroppedHandles) {
  EXPECT_EQ(Thread::Start(nullptr, nullptr), nullptr);
  for (uint32_t result : {42u, platform::kStillActive}) {
    Gate gate;
    gate.result = result;
    auto thread = Thread::Start(WaitForGate, &gate);
    uint32_t code = 0;
    ASSERT_TRUE(thread->GetExitCode(&code));
    EXPECT_EQ(code, platform::kStillActive);
    EXPECT_FALSE(thread->Join(20)) << "the thread waits for the gate";
    std::atomic<int> joined{0};
    std::vector<std::thread> joiners;
    for (int i = 0; i < 3; ++i) joiners.emplace_back([&] { joined += thread->Join(600000); });
    gate.go->Set();
    for (auto& joiner : joiners) joiner.join();
    EXPECT_EQ(joined.load(), 3);
    EXPECT_TRUE(thread->Join(0)) << "an ended thread answers at once";
    ASSERT_TRUE(thread->GetExitCode(&code));
    EXPECT_EQ(code, result) << "a result of 259 is reported as it is";
    EXPECT_FALSE(thread->GetExitCode(nullptr));
    EXPECT_NE(gate.thread_id.load(), platform::CurrentThreadId());
  }
  // The id is the system's thread id; the main thread's is the process id.
  EXPECT_EQ(platform::CurrentThreadId(), static_cast<uint32_t>(getpid()));
  EXPECT_EQ(platform::CurrentThreadId(), static_cast<uint32_t>(syscall(SYS_gettid)));

  auto gate = std::make_shared<Gate>();
  auto thread = Thread::Start(WaitForSharedGate, new std::shared_ptr<Gate>(gate));
  thread.reset();
  EXPECT_EQ(gate->done->Wait(0), platform::WaitResult::kTimeout);
  gate->go->Set();
  EXPECT_EQ(gate->done->Wait(600000), platform::WaitResult::kSignaled) << "the thread went on to its end";
}

TEST(ThreadTest, CriticalSectionsAreReEntrantAndExclusive) {
  platform::CriticalSection section;
  platform::CriticalSectionLock outer(section);
  bool other_entered = true;
  {
    platform::CriticalSectionLock inner(section);  // the owner enters again
    std::thread([&] { other_entered = section.TryEnter(); }).join();
  }
  EXPECT_FALSE(other_entered) << "held once more than left";
}

}  // namespace
