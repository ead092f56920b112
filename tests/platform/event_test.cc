// Manual-reset events: unnamed ones are private; named ones are shared by
// name between threads and processes, live while any process holds them
// (also when holders crash), accept any text as a name, and refuse remains
// that are no live event of that name.

#include "platform/event.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "platform/posix/event_name_posix.h"
#include "tests/platform/child_process.h"
#include "tests/platform/test_support.h"

namespace {

using platform::Event;
using platform::WaitResult;
using platform_test::ChildProcess;
using platform_test::UniqueName;

const std::string kChild = BS_TEST_CHILD;

// Whether the event's shared object is still in the system, so a test can
// tell "gone" from "left behind, but ignored".
bool ObjectExists(const std::string& name) {
  const int fd = shm_open(platform::posix::EventObjectName(name).c_str(), O_RDONLY, 0);
  if (fd < 0) return false;
  close(fd);
  return true;
}

bool IsSet(Event& event) { return event.Wait(0) == WaitResult::kSignaled; }

TEST(EventTest, ManualResetUnnamedAndNamedInOneProcess) {
  bool existed = true;
  auto unnamed = Event::Create("", true, &existed);
  ASSERT_NE(unnamed, nullptr);
  EXPECT_FALSE(existed);
  EXPECT_EQ(unnamed->Wait(1), WaitResult::kSignaled);  // a wait leaves it set
  EXPECT_TRUE(IsSet(*unnamed));
  EXPECT_TRUE(unnamed->Reset());
  EXPECT_FALSE(IsSet(*unnamed));
  auto other = Event::Create("", true);
  EXPECT_FALSE(IsSet(*unnamed)) << "two unnamed events must not share state";
  EXPECT_EQ(Event::Open(""), nullptr);

  const std::string name = UniqueName("named");
  EXPECT_EQ(Event::Open(name), nullptr);
  EXPECT_FALSE(ObjectExists(name)) << "a failed open must not create anything";
  auto first = Event::Create(name, false, &existed);
  ASSERT_NE(first, nullptr);
  EXPECT_FALSE(existed);
  auto second = Event::Create(name, true, &existed);
  ASSERT_NE(second, nullptr);
  EXPECT_TRUE(existed);
  EXPECT_FALSE(IsSet(*second)) << "the initial state applies only to a new event";
  EXPECT_TRUE(second->Set());
  auto opened = Event::Open(name);
  ASSERT_NE(opened, nullptr);
  EXPECT_TRUE(IsSet(*first));
  EXPECT_TRUE(opened->Reset());
  EXPECT_FALSE(IsSet(*first));

  // The event goes with its last handle; a new one does not inherit its state.
  second->Set();
  first.reset();
  second.reset();
  EXPECT_TRUE(ObjectExists(name));
  opened.reset();
  EXPECT_FALSE(ObjectExists(name));
  EXPECT_EQ(Event::Open(name), nullptr);
  auto fresh = Event::Create(name, false, &existed);
  EXPECT_FALSE(existed);
  EXPECT_FALSE(IsSet(*fresh));
}

TEST(EventTest, WaitsTimeOutOrWakeEveryWaiter) {
  auto event = Event::Create(UniqueName("wait"), false);
  ASSERT_NE(event, nullptr);
  for (uint32_t timeout : {1u, 30u}) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(event->Wait(timeout), WaitResult::kTimeout);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(timeout));
  }
  for (const std::string& name : {std::string(), UniqueName("wake")}) {
    auto shared = Event::Create(name, false);
    ASSERT_NE(shared, nullptr);
    std::atomic<int> woken{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i) {
      waiters.emplace_back([&] { woken += shared->Wait(60000) == WaitResult::kSignaled; });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    shared->Set();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(woken.load(), 4) << (name.empty() ? "unnamed" : "named");
  }
}

TEST(EventTest, AnyTextIsADistinctName) {
  const std::string base = UniqueName("odd");
  const std::vector<std::string> names = {
      base + "/with/slashes", base + "/../..", base + ".", base + "..", base + " blank",
      base + "_2f",  // would collide with "/" under a naive escape
      base + "\xc3\xa4\xe2\x82\xac\xf0\x9f\x98\x80",  // umlaut, euro, emoji
      base + std::string(300, 'x'), base + std::string(300, '/'), base + std::string(5000, '%'),
      base + std::string(1, '\0') + "nul"};
  std::vector<std::unique_ptr<Event>> events;
  for (const std::string& name : names) {
    bool existed = true;
    events.push_back(Event::Create(name, false, &existed));
    ASSERT_NE(events.back(), nullptr) << name.size();
    EXPECT_FALSE(existed) << "name " << events.size() << " met another one";
    EXPECT_LE(platform::posix::EventObjectName(name).size(), 255u);
  }
  for (size_t i = 0; i < names.size(); ++i) {
    auto opened = Event::Open(names[i]);
    ASSERT_NE(opened, nullptr) << i;
    opened->Set();
    for (size_t j = 0; j < names.size(); ++j) EXPECT_EQ(IsSet(*events[j]), j <= i) << i << j;
  }
  events.clear();
  for (const std::string& name : names) EXPECT_FALSE(ObjectExists(name));
  const std::string overlong = base + std::string(40000, 'n');
  EXPECT_EQ(Event::Create(overlong, false), nullptr);
  EXPECT_EQ(Event::Open(overlong), nullptr);
}

TEST(EventTest, RemainsAndObjectsOfOtherNamesAreNoEvent) {
  // What every holder crashing leaves behind: the object, held by nobody.
  const std::string name = UniqueName("abandoned");
  const std::string object = platform::posix::EventObjectName(name);
  int fd = shm_open(object.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(ftruncate(fd, 4096), 0);
  void* map = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  ASSERT_NE(map, MAP_FAILED);
  memset(map, 0xff, 4096);  // the state word reads "set"
  munmap(map, 4096);
  close(fd);
  EXPECT_EQ(Event::Open(name), nullptr);
  EXPECT_FALSE(ObjectExists(name)) << "an open that meets the remains removes them";
  fd = shm_open(object.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(ftruncate(fd, 64), 0);
  close(fd);
  bool existed = true;
  auto event = Event::Create(name, false, &existed);  // a create starts afresh
  ASSERT_NE(event, nullptr);
  EXPECT_FALSE(existed);
  EXPECT_FALSE(IsSet(*event));

  // A live event whose object carries another name, as a hash collision of
  // two long names would produce, is neither opened nor joined.
  const std::string long_name = UniqueName("impostor") + std::string(400, 'i');
  auto real = Event::Create(long_name, false);
  ASSERT_NE(real, nullptr);
  fd = shm_open(platform::posix::EventObjectName(long_name).c_str(), O_RDWR, 0);
  struct stat info {};
  ASSERT_EQ(fstat(fd, &info), 0);
  const size_t size = static_cast<size_t>(info.st_size);
  char* bytes = static_cast<char*>(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
  ASSERT_NE(bytes, MAP_FAILED);
  bytes[size - 1] ^= 1;  // the last byte of the stored name
  // Asked from another process: this one shares the open it holds.
  EXPECT_EQ(platform_test::Run({kChild, "event-set", long_name}).exit_code, 2);
  bytes[size - 1] ^= 1;
  EXPECT_EQ(platform_test::Run({kChild, "event-set", long_name}).exit_code, 0);
  munmap(bytes, size);
  close(fd);
}

TEST(EventTest, OtherProcessesSetAndWait) {
  const std::string name = UniqueName("xproc") + "/\xc3\xa4" + std::string(300, 'z');
  auto event = Event::Create(name, false);
  ASSERT_NE(event, nullptr);
  EXPECT_EQ(platform_test::Run({kChild, "event-set", name}).exit_code, 0);
  EXPECT_TRUE(IsSet(*event));
  EXPECT_EQ(platform_test::Run({kChild, "event-set", UniqueName("missing")}).exit_code, 2);

  event->Reset();
  EXPECT_EQ(platform_test::Run({kChild, "event-wait", name, "20"}).exit_code, 1);  // timed out
  ChildProcess waiter;
  ASSERT_TRUE(waiter.Start({kChild, "event-wait", name, "600000"}));
  ASSERT_EQ(waiter.ReadLine(), "waiting");
  event->Set();
  EXPECT_EQ(waiter.Wait(), 0);
}

TEST(EventTest, TheEventLivesWhileAnyProcessHoldsItAlsoAfterCrashes) {
  const std::string name = UniqueName("xhold");
  auto mine = Event::Create(name, false);
  ChildProcess holder;
  ASSERT_TRUE(holder.Start({kChild, "event-hold", name}));
  ASSERT_EQ(holder.ReadLine(), "ready existed=1");
  mine->Set();
  mine.reset();
  auto opened = Event::Open(name);
  ASSERT_NE(opened, nullptr) << "the child still holds the event";
  EXPECT_TRUE(IsSet(*opened));
  opened.reset();
  holder.CloseInput();
  EXPECT_EQ(holder.Wait(), 0);
  EXPECT_FALSE(ObjectExists(name));

  // A killed holder takes no live event with it...
  mine = Event::Create(name, false);
  ChildProcess crashing;
  ASSERT_TRUE(crashing.Start({kChild, "crash-holding", name}));
  ASSERT_EQ(crashing.ReadLine(), "ready existed=1");
  crashing.Kill(SIGKILL);
  EXPECT_EQ(crashing.Wait(), 128 + SIGKILL);
  ASSERT_NE(Event::Open(name), nullptr);
  // ...and a killed last holder leaves none behind, nor its state.
  mine.reset();
  ChildProcess last;
  ASSERT_TRUE(last.Start({kChild, "crash-holding", name}));
  ASSERT_EQ(last.ReadLine(), "ready existed=0");
  last.Kill(SIGKILL);
  last.Wait();
  EXPECT_EQ(Event::Open(name), nullptr);
  bool existed = true;
  auto fresh = Event::Create(name, false, &existed);
  EXPECT_FALSE(existed);
  EXPECT_FALSE(IsSet(*fresh));
}

TEST(EventTest, ConcurrentCreateOpenAndCloseNeverLoseALiveEvent) {
  // Processes and threads race to create, open and close one name, first
  // while this test holds it set (all must find that very event), then
  // without a keeper (nothing may be left behind).
  for (const char* mode : {"held", "free"}) {
    SCOPED_TRACE(mode);
    const std::string name = UniqueName(std::string("churn_") + mode);
    std::unique_ptr<Event> keeper = mode[0] == 'h' ? Event::Create(name, true) : nullptr;
    std::vector<std::unique_ptr<ChildProcess>> children;
    for (int i = 0; i < 2; ++i) {
      children.push_back(std::make_unique<ChildProcess>());
      ASSERT_TRUE(children.back()->Start({kChild, "event-churn", name, "2000", mode}));
    }
    for (auto& child : children) ASSERT_EQ(child->ReadLine(), "ready");
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 2; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < 2000; ++i) {
          bool existed = false;
          auto event = Event::Create(name, false, &existed);
          const bool found = event != nullptr && Event::Open(name) != nullptr;
          if (!found || (keeper && (!existed || !IsSet(*event)))) ++failures;
        }
      });
    }
    for (auto& thread : threads) thread.join();
    for (auto& child : children) EXPECT_EQ(child->Wait(), 0);
    EXPECT_EQ(failures.load(), 0);
    keeper.reset();
    EXPECT_FALSE(ObjectExists(name));
  }
}

}  // namespace
