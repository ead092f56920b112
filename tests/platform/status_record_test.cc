// The status record: one writer, readers in other processes, no lock.

#include "platform/status_record.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>

#include "gtest/gtest.h"
#include "platform/posix/event_name_posix.h"
#include "tests/platform/helper.h"

namespace {

using platform::StatusRecord;
constexpr size_t kCapacity = StatusRecord::kCapacity;

bool ObjectExists(const std::string& name) {
  const int fd = shm_open(platform::posix::StatusObjectName(name).c_str(), O_RDONLY, 0);
  if (fd >= 0) close(fd);
  return fd >= 0;
}

TEST(StatusRecordTest, ReadersSeeWholeUpdatesOfALiveWriterOnly) {
  const std::string name = testutil::UniqueName("bs_test_status_");
  EXPECT_EQ(StatusRecord::Create(""), nullptr);
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
  ASSERT_TRUE(ObjectExists(name));
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
  EXPECT_EQ(reader->WriterProcessId(), getpid());

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
  EXPECT_TRUE(reader->Read(out.data(), out.size()));
  munmap(shared, sizeof(StatusRecord::Shared));
  close(shared_fd);

  // A writer whose record was removed, or removed and made anew by another,
  // leaves what is there now alone.
  shm_unlink(platform::posix::StatusObjectName(name).c_str());
  std::unique_ptr<StatusRecord> successor = StatusRecord::Create(name);
  ASSERT_NE(successor, nullptr);
  writer.reset();
  EXPECT_TRUE(ObjectExists(name));
  shm_unlink(platform::posix::StatusObjectName(name).c_str());
  successor.reset();
  EXPECT_FALSE(ObjectExists(name));
  writer = StatusRecord::Create(name);
  writer.reset();
  EXPECT_FALSE(ObjectExists(name)) << "the record goes with its writer";
  EXPECT_EQ(StatusRecord::Open(name), nullptr);
}

}  // namespace
