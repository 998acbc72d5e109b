#include "cgisupport/dyn_lib.h"

#include <gtest/gtest.h>

namespace storegen {
namespace {

TEST(DynamicLib, LoadsLooksUpAndUnloads) {
  void* lib = LoadDynamicLib(STOREGEN_TEST_DYN_FIXTURE);
  ASSERT_NE(lib, nullptr);
  auto answer = reinterpret_cast<int (*)()>(GetDynamicLibFunction(lib, "dyn_fixture_answer"));
  ASSERT_NE(answer, nullptr);
  EXPECT_EQ(answer(), 42);
  EXPECT_EQ(GetDynamicLibFunction(lib, "no_such_entry_point"), nullptr);
  EXPECT_EQ(UnloadDynamicLib(lib), 0);
  EXPECT_EQ(UnloadDynamicLib(nullptr), 0);
  EXPECT_EQ(LoadDynamicLib(TESTDATA_DIR "/no-such-library.so"), nullptr);
}

}  // namespace
}  // namespace storegen
