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

TEST(StatusRecordTest, ReadersSeeTheLastPublishedBytesWhileTheWriterLives) {
  const std::string name = platform_test::UniqueName("status");
  EXPECT_EQ(StatusRecord::Open(name), nullptr);
  EXPECT_EQ(StatusRecord::Create(""), nullptr);
  std::unique_ptr<StatusRecord> writer = StatusRecord::Create(name);
  ASSERT_NE(writer, nullptr);
  EXPECT_EQ(StatusRecord::Create(name), nullptr) << "a live writer keeps its record";

  std::unique_ptr<StatusRecord> reader = StatusRecord::Open(name);
  ASSERT_NE(reader, nullptr);
  char out[kCapacity];
  EXPECT_FALSE(reader->Read(out, sizeof out)) << "nothing published yet";
  const std::string full(kCapacity, 'a');
  writer->Publish(full.data(), full.size());
  writer->Publish("short", 5);
  ASSERT_TRUE(reader->Read(out, sizeof out));
  EXPECT_EQ(std::string(out, 5), "short");
  EXPECT_EQ(std::string(out + 5, kCapacity - 5), std::string(kCapacity - 5, '\0'));
  EXPECT_EQ(reader->WriterProcessId(), getpid());

  writer.reset();
  EXPECT_FALSE(ObjectExists(name)) << "the record goes with its writer";
  EXPECT_EQ(StatusRecord::Open(name), nullptr);
}

TEST(StatusRecordTest, RecordOfAWriterThatDiedIsIgnoredAndTakenOver) {
  const std::string name = platform_test::UniqueName("died");
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

  std::unique_ptr<StatusRecord> writer = StatusRecord::Create(name);
  ASSERT_NE(writer, nullptr);
  char out[8];
  EXPECT_FALSE(StatusRecord::Open(name)->Read(out, sizeof out)) << "the old bytes are gone";
}

TEST(StatusRecordTest, ReaderNeverSeesAMixOfTwoUpdates) {
  const std::string name = platform_test::UniqueName("mix");
  std::unique_ptr<StatusRecord> writer = StatusRecord::Create(name);
  ASSERT_NE(writer, nullptr);
  std::unique_ptr<StatusRecord> reader = StatusRecord::Open(name);
  ASSERT_NE(reader, nullptr);
  const std::string a(kCapacity, 'a'), b(kCapacity, 'b');
  writer->Publish(a.data(), a.size());

  // The writer keeps publishing while the reader reads, as long as it takes.
  std::atomic<bool> done{false};
  std::thread publisher([&] {
    for (int i = 0; !done; ++i) writer->Publish((i % 2 ? a : b).data(), kCapacity);
  });
  int reads = 0, mixed = 0;
  std::string out(kCapacity, '\0');
  for (int i = 0; i < 100000; ++i) {
    if (!reader->Read(out.data(), out.size())) continue;
    ++reads;
    if (out != a && out != b) ++mixed;
  }
  done = true;
  publisher.join();
  EXPECT_EQ(mixed, 0) << reads;
}

}  // namespace
