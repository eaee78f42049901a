#include "notary/ProcessReferences.h"

#include <gtest/gtest.h>

namespace {

TEST(ProcessReferencesTest, KeepsEachObjectOnce) {
  const auto before = kvl::notary::keptObjectCount();
  const auto object = std::make_shared<const int>(1);
  kvl::notary::keepForProcess(object);
  kvl::notary::keepForProcess(object);
  EXPECT_EQ(kvl::notary::keptObjectCount(), before + 1);
  EXPECT_EQ(object.use_count(), 2);
}

TEST(ProcessReferencesTest, IgnoresNull) {
  const auto before = kvl::notary::keptObjectCount();
  kvl::notary::keepForProcess(nullptr);
  EXPECT_EQ(kvl::notary::keptObjectCount(), before);
}

}  // namespace
