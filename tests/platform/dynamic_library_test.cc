// Loading libraries at run time, locally, with the loader's reason on failure.

#include "platform/dynamic_library.h"

#include <dlfcn.h>

#include <string>

#include "gtest/gtest.h"

namespace {

TEST(DynamicLibraryTest, LoadsFindsAndFails) {
  std::string error;
  EXPECT_EQ(platform::LoadDynamicLibrary("/nonexistent/librfc_missing.so", &error), nullptr);
  EXPECT_NE(error.find("librfc_missing.so"), std::string::npos) << error;
  EXPECT_EQ(platform::DynamicLibrary::Load("librfc_missing_bare.so"), nullptr);
  error.clear();
  EXPECT_EQ(platform::LoadDynamicLibrary("", &error), nullptr) << "never the main program";
  EXPECT_FALSE(error.empty());

  auto library = platform::DynamicLibrary::Load(BS_TEST_LIBRARY, &error);
  ASSERT_NE(library, nullptr) << error;
  auto* answer = reinterpret_cast<int (*)()>(library->Symbol("bs_test_answer"));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 42);
  EXPECT_EQ(library->Symbol("bs_test_no_such_function"), nullptr);
  EXPECT_EQ(dlsym(RTLD_DEFAULT, "bs_test_answer"), nullptr) << "loaded locally";

  platform::LibraryHandle libm = platform::LoadDynamicLibrary("libm.so.6");
  ASSERT_NE(libm, nullptr);
  auto* cosine = reinterpret_cast<double (*)(double)>(platform::GetLibrarySymbol(libm, "cos"));
  ASSERT_NE(cosine, nullptr);
  EXPECT_DOUBLE_EQ(cosine(0.0), 1.0);
  EXPECT_EQ(platform::GetLibrarySymbol(libm, nullptr), nullptr);
  platform::FreeDynamicLibrary(libm);
  EXPECT_EQ(platform::GetLibrarySymbol(nullptr, "cos"), nullptr);
  platform::FreeDynamicLibrary(nullptr);
}

}  // namespace
