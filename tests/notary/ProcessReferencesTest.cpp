#include "notary/ProcessReferences.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace {

TEST(ProcessReferencesTest, KeepsEachObjectOnce) {
  const auto before = kvl::notary::keptObjectCount();
  const auto object = std::make_shared<const int>(1);
  kvl::notary::keepForProcess(object);
  kvl::notary::keepForProcess(object);
  EXPECT_EQ(kvl::notary::keptObjectCount(), before + 1);
  EXPECT_EQ(object.use_count(), 2);
}

// In a process that has kept nothing yet: once null were kept, it would not be kept again.
TEST(ProcessReferencesDeathTest, IgnoresNull) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        kvl::notary::keepForProcess(nullptr);
        _exit(static_cast<int>(kvl::notary::keptObjectCount()));
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
