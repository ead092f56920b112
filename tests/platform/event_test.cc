// Objects shared by name between processes: manual-reset events and the
// status record (one writer, readers in other processes, no lock).

#include "platform/event.h"
#include "platform/status_record.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <sstream>
#include <thread>

#include "gtest/gtest.h"
#include "platform/posix/event_name_posix.h"
#include "tests/support/processes.h"
#include "tests/support/polling.h"

namespace {

using platform::Event;
using platform::WaitResult;
using platform::StatusRecord;
constexpr size_t kCapacity = StatusRecord::kCapacity;

// "Gone" and "left behind, but ignored" look alike otherwise.
bool Exists(const std::string& object) {
  const int fd = shm_open(object.c_str(), O_RDONLY, 0);
  if (fd >= 0) close(fd);
  return fd >= 0;
}
bool ObjectExists(const std::string& name) { return Exists(platform::posix::EventObjectName(name)); }
bool RecordExists(const std::string& name) { return Exists(platform::posix::StatusObjectName(name)); }

bool IsSet(Event& event) { return event.Wait(0) == WaitResult::kSignaled; }

TEST(EventTest, ManualResetUnnamedAndNamedInOneProcess) {
  bool existed = true;
  auto unnamed = Event::Create("", true, &existed);
  EXPECT_FALSE(existed);
  EXPECT_EQ(unnamed->Wait(1), WaitResult::kSignaled);
  EXPECT_TRUE(IsSet(*unnamed)) << "a wait leaves it set";
  EXPECT_TRUE(unnamed->Reset());
  auto other = Event::Create("", true);
  EXPECT_FALSE(IsSet(*unnamed)) << "two unnamed events must not share state";

  auto fresh = Event::Create(testutil::UniqueName("bs_test_named_"), false);
  EXPECT_EQ(fresh->Wait(30), WaitResult::kTimeout);
  for (Event* shared : {unnamed.get(), fresh.get()}) {
    std::atomic<int> woken{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 4; ++i) waiters.emplace_back([&] { woken += shared->Wait(600000) == WaitResult::kSignaled; });
    shared->Set();
    for (auto& waiter : waiters) waiter.join();
    EXPECT_EQ(woken.load(), 4) << "a set wakes every waiter";
  }
}

TEST(EventTest, AnyTextIsADistinctName) {
  const std::string base = testutil::UniqueName("bs_test_odd_");
  const std::vector<std::string> names = {
      base + "/with/slashes-and-dashes", base + "/../..", base + ".", base + "..", base + " blank",
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
  }
  for (size_t i = 0; i < names.size(); ++i) {
    Event::Open(names[i])->Set();
    for (size_t j = 0; j < names.size(); ++j) EXPECT_EQ(IsSet(*events[j]), j <= i) << i << j;
  }
  const std::string overlong = base + std::string(40000, 'n');
  EXPECT_EQ(Event::Create(overlong, false), nullptr);
  EXPECT_EQ(Event::Open(overlong), nullptr);
}

TEST(EventTest, RemainsAndObjectsOfOtherNamesAreNoEvent) {
  // What every holder crashing leaves behind: the object, held by nobody,
  // its state word reading "set".
  const std::string name = testutil::UniqueName("bs_test_abandoned_");
  const std::string object = platform::posix::EventObjectName(name);
  int fd = shm_open(object.c_str(), O_RDWR | O_CREAT, 0600);
  ASSERT_EQ(ftruncate(fd, 4096), 0);
  void* map = mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
  ASSERT_NE(map, MAP_FAILED);
  memset(map, 0xff, 4096);
  munmap(map, 4096);
  close(fd);
  EXPECT_EQ(Event::Open(name), nullptr);
  EXPECT_FALSE(ObjectExists(name)) << "an open that meets the remains removes them";

  // A live event whose object carries another name, as a hash collision of
  // two long names would produce, is neither opened nor joined.
  const std::string long_name = testutil::UniqueName("bs_test_impostor_") + std::string(400, 'i');
  auto real = Event::Create(long_name, false);
  fd = shm_open(platform::posix::EventObjectName(long_name).c_str(), O_RDWR, 0);
  struct stat info {};
  ASSERT_EQ(fstat(fd, &info), 0);
  const size_t size = static_cast<size_t>(info.st_size);
  char* bytes = static_cast<char*>(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
  ASSERT_NE(bytes, MAP_FAILED);
  bytes[size - 1] ^= 1;  // the last byte of the stored name
  // Asked from another process: this one shares the open it holds.
  EXPECT_EQ(testutil::RunCommand({BS_TEST_CHILD, "event-set", long_name}).exit_code, 2);
  bytes[size - 1] ^= 1;
  EXPECT_EQ(testutil::RunCommand({BS_TEST_CHILD, "event-set", long_name}).exit_code, 0);
  EXPECT_TRUE(IsSet(*real));
  munmap(bytes, size);
  close(fd);
}

TEST(EventTest, ConcurrentCreateOpenAndCloseNeverLoseALiveEvent) {
  // Held set, all must find that very event; without a keeper, nothing may remain.
  for (const bool held : {true, false}) {
    const std::string name = testutil::UniqueName("bs_test_churn_");
    std::unique_ptr<Event> keeper = held ? Event::Create(name, true) : nullptr;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&] {
        for (int i = 0; i < 2000; ++i) {
          bool existed = false;
          auto event = Event::Create(name, false, &existed);
          const bool found = event != nullptr && Event::Open(name) != nullptr;
          if (!found || (held && (!existed || !IsSet(*event)))) ++failures;
        }
      });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(failures.load(), 0) << held;
    keeper.reset();
    EXPECT_FALSE(ObjectExists(name)) << held;
  }
}

// A create that waits for the guard while the last holder removes the object
// makes a new event instead of joining the removed one.
TEST(EventTest, ACreateThatMeetsARemovedObjectMakesANewOne) {
  const std::string name = testutil::UniqueName("bs_test_removed_");
  const std::string object = platform::posix::EventObjectName(name);
  const int fd = shm_open(object.c_str(), O_RDWR | O_CREAT, 0600);
  struct stat info {};
  ASSERT_EQ(fstat(fd, &info), 0);
  struct flock guard {};  // byte 0: the guard a closing holder takes
  guard.l_type = F_WRLCK;
  guard.l_len = 1;
  ASSERT_EQ(fcntl(fd, F_OFD_SETLK, &guard), 0);
  std::unique_ptr<Event> created;
  std::thread creator([&] { created = Event::Create(name, true); });
  const std::string inode = ":" + std::to_string(info.st_ino) + " ";
  ASSERT_TRUE(testutil::Eventually([&] {  // a waiter on this object's lock shows as "->"
    std::istringstream locks(testutil::ReadBytes("/proc/locks"));
    for (std::string line; std::getline(locks, line);) {
      if (line.find("->") != std::string::npos && line.find(inode) != std::string::npos) return true;
    }
    return false;
  }));
  shm_unlink(object.c_str());
  close(fd);  // lets go of the guard
  creator.join();
  ASSERT_NE(created, nullptr);
  EXPECT_TRUE(IsSet(*created)) << "made anew, with its own initial state";
  EXPECT_TRUE(ObjectExists(name));
}

TEST(StatusRecordTest, ReadersSeeWholeUpdatesOfALiveWriterOnly) {
  const std::string name = testutil::UniqueName("bs_test_status_");
  // A writer that died without closing leaves a record nobody reads; the next
  // writer takes it over without its bytes.
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    std::unique_ptr<StatusRecord> record = StatusRecord::Create(name);
    if (record) record->Publish("old", 3);
    _exit(record ? 0 : 1);  // no destructor: as a crash leaves it
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(StatusRecord::Open(name), nullptr);
  const std::string odd = testutil::UniqueName("bs_test_odd_size_");  // no record's size: not opened
  const int fd = shm_open(platform::posix::StatusObjectName(odd).c_str(), O_RDWR | O_CREAT, 0600);
  EXPECT_EQ(StatusRecord::Open(odd), nullptr);
  close(fd);
  shm_unlink(platform::posix::StatusObjectName(odd).c_str());
  std::unique_ptr<StatusRecord> writer = StatusRecord::Create(name);
  ASSERT_NE(writer, nullptr);
  EXPECT_EQ(StatusRecord::Create(name), nullptr) << "a live writer keeps its record";
  std::unique_ptr<StatusRecord> reader = StatusRecord::Open(name);
  ASSERT_NE(reader, nullptr);
  std::string out(kCapacity, '\0');
  EXPECT_FALSE(reader->Read(out.data(), out.size())) << "nothing published yet";

  // The writer keeps publishing while the reader reads: never a mix of two.
  const std::string a(kCapacity, 'a'), b(kCapacity, 'b');
  writer->Publish(a.data(), a.size());
  std::atomic<bool> done{false};
  std::thread publisher([&] {
    for (int i = 0; !done; ++i) writer->Publish((i % 2 ? a : b).data(), kCapacity);
  });
  int mixed = 0;
  for (int i = 0; i < 20000; ++i) mixed += reader->Read(out.data(), out.size()) && out != a && out != b;
  done = true;
  publisher.join();
  EXPECT_EQ(mixed, 0);
  writer->Publish("short", 5);
  ASSERT_TRUE(reader->Read(out.data(), out.size()));
  EXPECT_EQ(out, "short" + std::string(kCapacity - 5, '\0'));

  // An update left half done (an odd sequence, as a writer that died in the
  // middle leaves it) gives no copy at all.
  const int shared_fd = shm_open(platform::posix::StatusObjectName(name).c_str(), O_RDWR, 0);
  auto* shared = static_cast<StatusRecord::Shared*>(
      mmap(nullptr, sizeof(StatusRecord::Shared), PROT_READ | PROT_WRITE, MAP_SHARED, shared_fd, 0));
  ASSERT_NE(shared, MAP_FAILED);
  shared->sequence += 1;
  EXPECT_FALSE(reader->Read(out.data(), out.size()));
  shared->sequence += 1;
  munmap(shared, sizeof(StatusRecord::Shared));
  close(shared_fd);

  // A writer whose record was removed, or removed and made anew by another,
  // leaves what is there now alone.
  shm_unlink(platform::posix::StatusObjectName(name).c_str());
  std::unique_ptr<StatusRecord> successor = StatusRecord::Create(name);
  ASSERT_NE(successor, nullptr);
  writer.reset();
  EXPECT_TRUE(RecordExists(name));
  shm_unlink(platform::posix::StatusObjectName(name).c_str());
  successor.reset();
  EXPECT_FALSE(RecordExists(name)) << "the record goes with its writer";
}

}  // namespace
