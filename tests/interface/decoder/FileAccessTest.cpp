// What Landlock alone refuses, version by version: nothing filters system calls here.
#include "platform/interface/decoder/FileAccess.h"
#include "tests/interface/decoder/DecoderFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace {

using kvl::interface::Lack;

class FileAccessTest : public kvltest::DecoderFixture {
 protected:
  FileAccessTest() : DecoderFixture({"--without", "filters"}) {}

  void SetUp() override {
    DecoderFixture::SetUp();
    if (kvltest::kernelsLandlock() == 0) GTEST_SKIP() << "this system has no Landlock";
  }
};

TEST_F(FileAccessTest, OnlyFontsCanBeRead) {
  EXPECT_EQ(tell("open " + secret()), EACCES);
  EXPECT_EQ(tell("list " + home()), EACCES);
  EXPECT_EQ(tell("open /etc/fonts/fonts.conf"), 0);
  EXPECT_EQ(tell("list /usr/share/fonts"), 0);
}

TEST_F(FileAccessTest, NothingCanBeChanged) {
  EXPECT_EQ(tell("write " + secret()), EACCES);
  EXPECT_EQ(tell("make " + home() + "/new"), EACCES);
  EXPECT_EQ(tell("remove " + secret()), EACCES);
  EXPECT_EQ(tell("folder " + home() + "/new"), EACCES);
  EXPECT_EQ(tell("write /etc/fonts/fonts.conf"), EACCES);
  EXPECT_EQ(tell("exec /bin/true"), EACCES);
}

TEST_F(FileAccessTest, TheHostAndTheNetworkAreOutOfReachWhereTheKernelKnowsThem) {
  const auto version = kvltest::kernelsLandlock();
  EXPECT_EQ(tell("tcp-connect"), version >= 4 ? EACCES : ECONNREFUSED);
  EXPECT_EQ(tell("kill " + std::to_string(getpid())), version >= 6 ? EPERM : 0);
}

TEST(FileAccessVersionTest, EachVersionIsUsedAsFarAsItGoes) {
  for (unsigned version = 1; version <= kvl::decoder::kNewestLandlock; ++version) {
    kvltest::DecoderProcess decoder(KVL_TOLD_DECODER, {"--landlock", std::to_string(version)});
    const auto hello = decoder.hello();
    ASSERT_TRUE(hello);
    if (kvltest::kernelsLandlock() < version) GTEST_SKIP() << "the kernel has no " << version;
    EXPECT_EQ(hello->landlockVersion, version);
    EXPECT_EQ(hello->lacks & Lack::kNoLandlock, 0U) << version;
    EXPECT_EQ((hello->lacks & Lack::kNoNetworkRules) != 0, version < 4) << version;
    auto worker = decoder.start();
    ASSERT_TRUE(worker);
    EXPECT_EQ(worker->tell("open /etc/passwd"), EACCES) << version;
    EXPECT_EQ(worker->tell("open /etc/fonts/fonts.conf"), 0) << version;
  }
}

}  // namespace
