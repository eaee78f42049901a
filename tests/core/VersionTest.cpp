#include <local/platform/Version.h>

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(VersionTest, TheLibraryTellsTheVersionThatItWasMadeFrom) {
  EXPECT_EQ(kvl::version().number, KVL_VERSION);
  EXPECT_EQ(kvl::version().text, KVL_VERSION_STRING);
}

TEST(VersionTest, TheTextIsMadeOfTheThreeNumbers) {
  EXPECT_EQ(kvl::version().text, std::to_string(KVL_VERSION_MAJOR) + "." +
                                     std::to_string(KVL_VERSION_MINOR) + "." +
                                     std::to_string(KVL_VERSION_PATCH));
}

TEST(VersionTest, NumbersAreOrderedAsVersionsAre) {
  static_assert(KVL_VERSION_NUMBER(0, 1, 99) < KVL_VERSION_NUMBER(0, 2, 0));
  static_assert(KVL_VERSION_NUMBER(0, 99, 99) < KVL_VERSION_NUMBER(1, 0, 0));
  EXPECT_EQ(KVL_VERSION_NUMBER(1, 2, 3), 10203);
}

TEST(VersionTest, ThePreprocessorComparesVersions) {
#if KVL_VERSION_AT_LEAST(0, 1, 0) && !KVL_VERSION_AT_LEAST(99, 0, 0)
  SUCCEED();
#else
  FAIL();
#endif
}

}  // namespace
