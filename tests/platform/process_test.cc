// The process's own services: the current directory however long or gone,
// the C locale's upper case, and word to a service manager.

#include "platform/process.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "gtest/gtest.h"
#include "platform/service_notify.h"
#include "tests/platform/helper.h"
#include "tests/support/notify_socket.h"

namespace {

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
  for (int c : {'a', 'z'}) EXPECT_EQ(platform::ToUpper(c), c - 'a' + 'A');
  for (int c : {int{'A'}, int{'1'}, int{'_'}, EOF}) EXPECT_EQ(platform::ToUpper(c), c);
  // Bytes above 127 come in as negative chars; the C locale leaves them.
  const char umlaut = static_cast<char>(0xE4);
  EXPECT_EQ(static_cast<char>(platform::ToUpper(umlaut)), umlaut);
  char text[] = "rfc_read_table\0tail\xe4";
  platform::ToUpperInPlace(text, sizeof text - 1);
  EXPECT_EQ(std::string(text, sizeof text - 1), std::string("RFC_READ_TABLE\0TAIL\xe4", 20))
      << "the whole length is converted, past an embedded zero";
  char partial[] = "abc";
  platform::ToUpperInPlace(partial, 2);
  EXPECT_STREQ(partial, "ABc");
  platform::ToUpperInPlace(nullptr, 0);
}

// One datagram to a path or an abstract name; nothing for an address that
// cannot be one or where nobody listens.
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
