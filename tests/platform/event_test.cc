#include "platform/event.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <chrono>
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

int RunChild(const std::vector<std::string>& args) {
  std::vector<std::string> argv{kChild};
  argv.insert(argv.end(), args.begin(), args.end());
  return platform_test::Run(argv).exit_code;
}

TEST(EventTest, UnnamedEventIsManualResetAndPrivate) {
  bool existed = true;
  auto event = Event::Create("", true, &existed);
  ASSERT_NE(event, nullptr);
  EXPECT_FALSE(existed);
  // Manual reset: a successful wait leaves it set.
  EXPECT_EQ(event->Wait(0), WaitResult::kSignaled);
  EXPECT_EQ(event->Wait(1), WaitResult::kSignaled);
  EXPECT_TRUE(event->Reset());
  EXPECT_EQ(event->Wait(0), WaitResult::kTimeout);
  EXPECT_EQ(event->Wait(1), WaitResult::kTimeout);

  auto other = Event::Create("", false);
  ASSERT_NE(other, nullptr);
  EXPECT_TRUE(other->Set());
  EXPECT_EQ(event->Wait(0), WaitResult::kTimeout) << "two unnamed events must not share state";
  EXPECT_EQ(Event::Open(""), nullptr);
}

TEST(EventTest, CreateTwiceOpensTheSameEventAndIgnoresInitialState) {
  const std::string name = UniqueName("twice");
  bool existed = true;
  auto first = Event::Create(name, false, &existed);
  ASSERT_NE(first, nullptr);
  EXPECT_FALSE(existed);
  EXPECT_EQ(first->Wait(0), WaitResult::kTimeout);

  auto second = Event::Create(name, true, &existed);
  ASSERT_NE(second, nullptr);
  EXPECT_TRUE(existed);
  EXPECT_EQ(second->Wait(0), WaitResult::kTimeout) << "initially_set applies only to a new event";

  EXPECT_TRUE(second->Set());
  EXPECT_EQ(first->Wait(0), WaitResult::kSignaled);
  auto opened = Event::Open(name);
  ASSERT_NE(opened, nullptr);
  EXPECT_EQ(opened->Wait(0), WaitResult::kSignaled);
  EXPECT_TRUE(opened->Reset());
  EXPECT_EQ(first->Wait(0), WaitResult::kTimeout);
}

TEST(EventTest, OpenFindsOnlyExistingEvents) {
  const std::string name = UniqueName("open");
  EXPECT_EQ(Event::Open(name), nullptr);
  EXPECT_FALSE(ObjectExists(name)) << "a failed open must not create anything";
  auto created = Event::Create(name, true);
  ASSERT_NE(created, nullptr);
  auto opened = Event::Open(name);
  ASSERT_NE(opened, nullptr);
  EXPECT_EQ(opened->Wait(0), WaitResult::kSignaled);
}

TEST(EventTest, LastCloseInThisProcessRemovesTheEvent) {
  const std::string name = UniqueName("lastclose");
  auto first = Event::Create(name, true);
  auto second = Event::Open(name);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  first.reset();
  EXPECT_TRUE(ObjectExists(name));
  auto third = Event::Open(name);
  ASSERT_NE(third, nullptr) << "one handle still lives";
  EXPECT_EQ(third->Wait(0), WaitResult::kSignaled);
  second.reset();
  third.reset();
  EXPECT_FALSE(ObjectExists(name));
  EXPECT_EQ(Event::Open(name), nullptr);

  bool existed = true;
  auto fresh = Event::Create(name, false, &existed);
  ASSERT_NE(fresh, nullptr);
  EXPECT_FALSE(existed);
  EXPECT_EQ(fresh->Wait(0), WaitResult::kTimeout) << "a new event must not inherit the old state";
}

TEST(EventTest, WaitTimesOutNoEarlierThanAsked) {
  auto event = Event::Create(UniqueName("timeout"), false);
  ASSERT_NE(event, nullptr);
  for (uint32_t timeout : {1u, 2u, 30u}) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(event->Wait(timeout), WaitResult::kTimeout);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(timeout));
  }
}

TEST(EventTest, SetWakesEveryWaiterInOtherThreads) {
  for (const std::string& name : {std::string(), UniqueName("wake")}) {
    auto event = Event::Create(name, false);
    ASSERT_NE(event, nullptr);
    std::atomic<int> woken{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i) {
      waiters.emplace_back([&] {
        if (event->Wait(60000) == WaitResult::kSignaled) ++woken;
      });
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    event->Set();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(woken.load(), 4) << (name.empty() ? "unnamed" : "named");
  }
}

TEST(EventTest, OddNamesAreDistinctAndUsable) {
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
    for (size_t j = 0; j < names.size(); ++j) {
      EXPECT_EQ(events[j]->Wait(0), j <= i ? WaitResult::kSignaled : WaitResult::kTimeout)
          << "set " << i << ", looked at " << j;
    }
  }
  events.clear();
  for (const std::string& name : names) EXPECT_FALSE(ObjectExists(name));
}

TEST(EventTest, OverlongNameFailsCleanly) {
  const std::string name = UniqueName("long") + std::string(40000, 'n');
  EXPECT_EQ(Event::Create(name, false), nullptr);
  EXPECT_EQ(Event::Open(name), nullptr);
}

TEST(EventTest, AbandonedObjectIsNotAnEvent) {
  // What every holder crashing leaves behind: the object with nobody holding it.
  const std::string name = UniqueName("abandoned");
  const std::string object = platform::posix::EventObjectName(name);
  const int fd = shm_open(object.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(ftruncate(fd, 4096), 0);
  void* map = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  ASSERT_NE(map, MAP_FAILED);
  memset(map, 0xff, 4096);  // the state word reads "set"
  munmap(map, 4096);
  close(fd);

  EXPECT_EQ(Event::Open(name), nullptr);
  EXPECT_FALSE(ObjectExists(name)) << "an open that meets the remains removes them";

  // A create that meets remains starts afresh.
  const int again = shm_open(object.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_GE(again, 0);
  ASSERT_EQ(ftruncate(again, 64), 0);
  close(again);
  bool existed = true;
  auto event = Event::Create(name, false, &existed);
  ASSERT_NE(event, nullptr);
  EXPECT_FALSE(existed);
  EXPECT_EQ(event->Wait(0), WaitResult::kTimeout);
}

TEST(EventTest, ObjectOfAnotherNameIsRefused) {
  // A live event whose object carries another name, as a hash collision of
  // two long names would produce, is neither opened nor joined.
  const std::string name = UniqueName("impostor") + std::string(400, 'i');
  const std::string object = platform::posix::EventObjectName(name);
  auto real = Event::Create(name, false);
  ASSERT_NE(real, nullptr);
  const int fd = shm_open(object.c_str(), O_RDWR, 0);
  ASSERT_GE(fd, 0);
  struct stat info {};
  ASSERT_EQ(fstat(fd, &info), 0);
  void* map = mmap(nullptr, static_cast<size_t>(info.st_size), PROT_READ | PROT_WRITE, MAP_SHARED,
                   fd, 0);
  ASSERT_NE(map, MAP_FAILED);
  static_cast<char*>(map)[info.st_size - 1] ^= 1;  // the last byte of the stored name
  EXPECT_EQ(Event::Open(name), nullptr);
  EXPECT_EQ(Event::Create(name, false), nullptr);
  static_cast<char*>(map)[info.st_size - 1] ^= 1;
  EXPECT_NE(Event::Open(name), nullptr);
  munmap(map, static_cast<size_t>(info.st_size));
  close(fd);
}

TEST(EventTest, OtherProcessOpensAndSets) {
  const std::string name = UniqueName("xset") + "/\xc3\xa4" + std::string(300, 'z');
  auto event = Event::Create(name, false);
  ASSERT_NE(event, nullptr);
  EXPECT_EQ(RunChild({"event-set", name}), 0);
  EXPECT_EQ(event->Wait(0), WaitResult::kSignaled);
  EXPECT_EQ(RunChild({"event-set", UniqueName("missing")}), 2);
}

TEST(EventTest, OtherProcessWaitsUntilSet) {
  const std::string name = UniqueName("xwait");
  auto event = Event::Create(name, false);
  ASSERT_NE(event, nullptr);

  ChildProcess timing_out;
  ASSERT_TRUE(timing_out.Start({kChild, "event-wait", name, "20"}));
  EXPECT_EQ(timing_out.Wait(), 1) << "the child's wait must time out while nobody sets";

  ChildProcess waiter;
  ASSERT_TRUE(waiter.Start({kChild, "event-wait", name, "600000"}));
  ASSERT_EQ(waiter.ReadLine(), "waiting");
  event->Set();
  EXPECT_EQ(waiter.Wait(), 0);
}

TEST(EventTest, EventLivesWhileAnyProcessHoldsIt) {
  const std::string name = UniqueName("xhold");
  auto mine = Event::Create(name, false);
  ASSERT_NE(mine, nullptr);
  ChildProcess holder;
  ASSERT_TRUE(holder.Start({kChild, "event-hold", name}));
  ASSERT_EQ(holder.ReadLine(), "ready existed=1");
  mine->Set();
  mine.reset();

  auto opened = Event::Open(name);
  ASSERT_NE(opened, nullptr) << "the child still holds the event";
  EXPECT_EQ(opened->Wait(0), WaitResult::kSignaled);
  opened.reset();

  holder.CloseInput();
  EXPECT_EQ(holder.Wait(), 0);
  EXPECT_EQ(Event::Open(name), nullptr);
  EXPECT_FALSE(ObjectExists(name));
}

TEST(EventTest, KilledLastHolderLeavesNoEvent) {
  const std::string name = UniqueName("xkill");
  ChildProcess holder;
  ASSERT_TRUE(holder.Start({kChild, "crash-holding", name}));
  ASSERT_EQ(holder.ReadLine(), "ready existed=0");
  {
    auto opened = Event::Open(name);
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(opened->Wait(0), WaitResult::kSignaled);
  }
  holder.Kill(SIGKILL);
  EXPECT_EQ(holder.Wait(), 128 + SIGKILL);

  EXPECT_EQ(Event::Open(name), nullptr);
  bool existed = true;
  auto fresh = Event::Create(name, false, &existed);
  ASSERT_NE(fresh, nullptr);
  EXPECT_FALSE(existed);
  EXPECT_EQ(fresh->Wait(0), WaitResult::kTimeout) << "the dead holder's set must not carry over";
}

TEST(EventTest, KilledHolderDoesNotTakeALiveEventWithIt) {
  const std::string name = UniqueName("xkill2");
  auto mine = Event::Create(name, false);
  ASSERT_NE(mine, nullptr);
  ChildProcess holder;
  ASSERT_TRUE(holder.Start({kChild, "crash-holding", name}));
  ASSERT_EQ(holder.ReadLine(), "ready existed=1");
  holder.Kill(SIGKILL);
  holder.Wait();
  auto opened = Event::Open(name);
  ASSERT_NE(opened, nullptr);
  EXPECT_EQ(opened->Wait(0), WaitResult::kSignaled);
}

TEST(EventTest, ConcurrentCreateAndCloseNeverLoseALiveEvent) {
  // Processes and threads race to create, open and close one name while this
  // test holds it set: every one of them must find that very event.
  const std::string name = UniqueName("churn");
  auto keeper = Event::Create(name, true);
  ASSERT_NE(keeper, nullptr);
  std::vector<std::unique_ptr<ChildProcess>> children;
  for (int i = 0; i < 2; ++i) {
    children.push_back(std::make_unique<ChildProcess>());
    ASSERT_TRUE(children.back()->Start({kChild, "event-churn", name, "2000", "held"}));
  }
  for (auto& child : children) ASSERT_EQ(child->ReadLine(), "ready");
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        bool existed = false;
        auto event = Event::Create(name, false, &existed);
        if (event == nullptr || !existed || event->Wait(0) != WaitResult::kSignaled) ++failures;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (auto& child : children) EXPECT_EQ(child->Wait(), 0);
  EXPECT_EQ(failures.load(), 0);
  keeper.reset();
  EXPECT_FALSE(ObjectExists(name));
}

TEST(EventTest, ConcurrentChurnWithoutKeeperLeavesNothingBehind) {
  const std::string name = UniqueName("churnfree");
  std::vector<std::unique_ptr<ChildProcess>> children;
  for (int i = 0; i < 2; ++i) {
    children.push_back(std::make_unique<ChildProcess>());
    ASSERT_TRUE(children.back()->Start({kChild, "event-churn", name, "2000", "free"}));
  }
  for (auto& child : children) ASSERT_EQ(child->ReadLine(), "ready");
  std::atomic<int> failures{0};
  std::thread churner([&] {
    for (int i = 0; i < 2000; ++i) {
      auto event = Event::Create(name, false);
      if (event == nullptr || Event::Open(name) == nullptr) ++failures;
    }
  });
  churner.join();
  for (auto& child : children) EXPECT_EQ(child->Wait(), 0);
  EXPECT_EQ(failures.load(), 0);
  EXPECT_FALSE(ObjectExists(name));
  EXPECT_EQ(Event::Open(name), nullptr);
}

}  // namespace
