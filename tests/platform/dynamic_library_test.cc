#include "platform/dynamic_library.h"

#include <dlfcn.h>

#include <cmath>
#include <string>

#include "gtest/gtest.h"

namespace {

TEST(DynamicLibraryTest, MissingFileFailsWithTheLoadersReason) {
  std::string error;
  EXPECT_EQ(platform::LoadDynamicLibrary("/nonexistent/librfc_missing.so", &error), nullptr);
  EXPECT_NE(error.find("librfc_missing.so"), std::string::npos) << error;
  EXPECT_EQ(platform::DynamicLibrary::Load("librfc_missing_bare.so"), nullptr);
  error.clear();
  EXPECT_EQ(platform::LoadDynamicLibrary("", &error), nullptr) << "never the main program";
  EXPECT_FALSE(error.empty());
}

TEST(DynamicLibraryTest, LoadsAFileAndFindsItsFunctions) {
  std::string error;
  auto library = platform::DynamicLibrary::Load(BS_TEST_LIBRARY, &error);
  ASSERT_NE(library, nullptr) << error;
  auto* answer = reinterpret_cast<int (*)()>(library->Symbol("bs_test_answer"));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 42);
  EXPECT_EQ(library->Symbol("bs_test_no_such_function"), nullptr);
  // Loaded locally: its names do not leak into the process's global scope.
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "bs_test_answer"), nullptr);
}

TEST(DynamicLibraryTest, BareNameFollowsTheLoadersSearch) {
  platform::LibraryHandle handle = platform::LoadDynamicLibrary("libm.so.6");
  ASSERT_NE(handle, nullptr);
  auto* cosine = reinterpret_cast<double (*)(double)>(platform::GetLibrarySymbol(handle, "cos"));
  ASSERT_NE(cosine, nullptr);
  EXPECT_DOUBLE_EQ(cosine(0.0), 1.0);
  platform::FreeDynamicLibrary(handle);
}

TEST(DynamicLibraryTest, NullHandlesAreHarmless) {
  EXPECT_EQ(platform::GetLibrarySymbol(nullptr, "cos"), nullptr);
  platform::FreeDynamicLibrary(nullptr);
  platform::LibraryHandle handle = platform::LoadDynamicLibrary(BS_TEST_LIBRARY);
  ASSERT_NE(handle, nullptr);
  EXPECT_EQ(platform::GetLibrarySymbol(handle, nullptr), nullptr);
  platform::FreeDynamicLibrary(handle);
}

}  // namespace
