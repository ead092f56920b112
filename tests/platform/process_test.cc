// The process's own services.

#include "platform/process.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "gtest/gtest.h"
#include "platform/critical_section.h"
#include "platform/dynamic_library.h"
#include "platform/event.h"
#include "platform/service_notify.h"
#include "platform/thread.h"
#include "tests/support/notify_socket.h"
#include "tests/support/temp_dir.h"

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
  // The id is the system's thread id (the main thread's is the process id).
  EXPECT_EQ(platform::CurrentThreadId(), static_cast<uint32_t>(syscall(SYS_gettid)));

  static Gate detached;  // outlives the thread, whose handle goes first
  auto thread = Thread::Start(WaitForGate, &detached);
  thread.reset();
  EXPECT_EQ(detached.done->Wait(0), platform::WaitResult::kTimeout);
  detached.go->Set();
  EXPECT_EQ(detached.done->Wait(600000), platform::WaitResult::kSignaled) << "the thread went on to its end";
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

TEST(DynamicLibraryTest, LoadsFindsAndFails) {
  std::string error;
  EXPECT_EQ(platform::LoadDynamicLibrary("/nonexistent/librfc_missing.so", &error), nullptr);
  EXPECT_NE(error.find("librfc_missing.so"), std::string::npos) << error;
  EXPECT_EQ(platform::DynamicLibrary::Load("librfc_missing_bare.so"), nullptr);
  error.clear();
  EXPECT_EQ(platform::LoadDynamicLibrary("", &error), nullptr) << "never the main program";

  auto library = platform::DynamicLibrary::Load(BS_TEST_LIBRARY, &error);
  ASSERT_NE(library, nullptr) << error;
  auto* answer = reinterpret_cast<int (*)()>(library->Symbol("bs_test_answer"));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 42);
  EXPECT_EQ(library->Symbol("bs_test_no_such_function"), nullptr);
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "bs_test_answer"), nullptr) << "loaded locally";
  EXPECT_EQ(library->Symbol(nullptr), nullptr);
  EXPECT_EQ(platform::GetLibrarySymbol(nullptr, "bs_test_answer"), nullptr);
  platform::FreeDynamicLibrary(nullptr);
}

TEST(ProcessTest, CurrentDirectory) {
  const std::filesystem::path saved = std::filesystem::current_path();
  testutil::TempDir dir;
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  std::string expected = std::filesystem::canonical(dir.path()).string();
  EXPECT_EQ(platform::CurrentDirectory(), expected);
  // Deeper than PATH_MAX: no fixed buffer can hold it; read whole or not at all.
  const std::string step(200, 'd');
  for (int i = 0; i < 30; ++i) {
    ASSERT_EQ(mkdir(step.c_str(), 0700), 0);
    ASSERT_EQ(chdir(step.c_str()), 0);
    expected += "/" + step;
  }
  const std::string got = platform::CurrentDirectory();
  EXPECT_TRUE(got.empty() || got == expected) << got.size();
  ASSERT_EQ(mkdir("doomed", 0700), 0);
  ASSERT_EQ(chdir("doomed"), 0);
  ASSERT_EQ(rmdir("../doomed"), 0);
  EXPECT_EQ(platform::CurrentDirectory(), "") << "a removed directory reads empty";
  std::filesystem::current_path(saved);
}

TEST(ProcessTest, UpperCaseUnderTheCLocale) {
  // Bytes above 127 come in as negative chars (0xE4 here); the C locale leaves them.
  std::string up;
  for (int c : std::initializer_list<int>{'a', 'z', 'A', '1', '_', -28, EOF}) up += std::to_string(platform::ToUpper(c)) + " ";
  EXPECT_EQ(up, "65 90 65 49 95 228 -1 ");
  char text[] = "rfc_read_table\0tail\xe4" "abc";  // the whole length, past an embedded zero
  platform::ToUpperInPlace(text, sizeof text - 2);
  EXPECT_EQ(std::string(text, sizeof text - 1), std::string("RFC_READ_TABLE\0TAIL\xe4""ABc", 23));
  platform::ToUpperInPlace(nullptr, 0);
}

TEST(ProcessTest, ServiceManagerNotes) {
  testutil::TempDir dir;
  const std::string path = dir.File("notify"), abstract = "@" + testutil::UniqueName("bs_test_notify_");
  testutil::NotifySocket at_path(path), at_name(abstract);
  ASSERT_TRUE(at_path.bound() && at_name.bound());
  const std::pair<std::string, bool> cases[] = {{path, true},           {abstract, true},
                                                {"", false},            {"/", false},
                                                {"relative", false},    {"/" + std::string(200, 'x'), false},
                                                {dir.File("x"), false}};
  for (const auto& [address, sent] : cases) {
    EXPECT_EQ(platform::NotifyServiceManager(address, "READY=1"), sent) << address;
  }
  for (testutil::NotifySocket* listener : {&at_path, &at_name}) {
    EXPECT_EQ(listener->Received(), std::vector<std::string>{"READY=1"});
  }
}

}  // namespace
