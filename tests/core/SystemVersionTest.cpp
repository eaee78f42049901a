#include <local/platform/SystemVersion.h>

#include <gtest/gtest.h>

namespace {

class SystemVersionTest : public testing::Test {
 protected:
  void TearDown() override { kvl::setSystemVersion(kvl::kDefaultSystemVersion); }
};

TEST_F(SystemVersionTest, DefaultsToACurrentVersion) {
  EXPECT_TRUE(kvl::isSystemVersionAtLeast(15, 0));
}

TEST_F(SystemVersionTest, ComparesMajorBeforeMinor) {
  kvl::setSystemVersion({14, 3});
  EXPECT_TRUE(kvl::isSystemVersionAtLeast(14));
  EXPECT_TRUE(kvl::isSystemVersionAtLeast(14, 3));
  EXPECT_FALSE(kvl::isSystemVersionAtLeast(14, 4));
  EXPECT_TRUE(kvl::isSystemVersionAtLeast(13, 9));
  EXPECT_FALSE(kvl::isSystemVersionAtLeast(15, 0));
}

}  // namespace
