// Bodies of requests that are files.
#include "tests/urlloading/BodySourceFixture.h"
#include "tests/urlloading/TextSource.h"

#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace kvl::testing {
namespace {

class FileBodyTest : public BodySourceTest {
 protected:
  FileBodyTest() { std::ofstream(path) << "0123456789"; }
  ~FileBodyTest() override { std::filesystem::remove(path); }

  const std::filesystem::path path =
      std::filesystem::temp_directory_path() / ("kvl-file-body-" + std::to_string(getpid()));
};

TEST_F(FileBodyTest, SendsWhatTheFileHolds) {
  const TestTLSServer peer({}, returning);
  EXPECT_TRUE(send(peer, fileBody(path)).text().ends_with("\r\n\r\n0123456789"));
}

TEST_F(FileBodyTest, LargeFilesAreSentWhole) {
  const TestTLSServer peer({}, returning);
  const std::string text = mixedText(700'000);
  std::ofstream(path) << text;
  EXPECT_TRUE(send(peer, fileBody(path)).text().ends_with("\r\n\r\n" + text));
}

TEST_F(FileBodyTest, TheSameRequestIsSentTwice) {
  const TestTLSServer peer({}, returning);
  const URLRequest twice = request(peer, fileBody(path));
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(load(*session, twice).text().ends_with("\r\n\r\n0123456789"));
  }
}

TEST_F(FileBodyTest, BeginsAtTheDescriptorsOffsetAndLeavesIt) {
  const TestTLSServer peer({}, redirecting("307 Temporary Redirect"));
  FILE* file = fopen(path.c_str(), "re");
  ASSERT_EQ(lseek(fileno(file), 4, SEEK_SET), 4);
  const auto source = fileBody(fileno(file));
  ASSERT_TRUE(source);
  EXPECT_EQ(source->length(), 6U);
  EXPECT_TRUE(send(peer, source).text().ends_with("\r\n\r\n456789"));
  EXPECT_EQ(lseek(fileno(file), 0, SEEK_CUR), 4);
  fclose(file);
}

TEST_F(FileBodyTest, AFileThatGrowsIsSentAsItWas) {
  const TestTLSServer peer({}, returning);
  const auto source = fileBody(path);
  std::ofstream(path, std::ios::app) << "more";
  EXPECT_TRUE(send(peer, source).text().ends_with("\r\n\r\n0123456789"));
}

TEST_F(FileBodyTest, AFileThatShrinksIsAnError) {
  const TestTLSServer peer({}, returning);
  const auto source = fileBody(path);
  std::filesystem::resize_file(path, 5);
  const Outcome outcome = send(peer, source);
  ASSERT_TRUE(outcome.error);
  EXPECT_TRUE(outcome.error->is(NSCocoaErrorDomain, NSFileReadUnknownError));
}

TEST_F(FileBodyTest, WhatIsNoRegularFileIsRefused) {
  std::optional<Error> error;
  EXPECT_FALSE(fileBody(path.parent_path(), &error));
  EXPECT_TRUE(error && error->is(NSPOSIXErrorDomain, EINVAL));
  EXPECT_FALSE(fileBody(path / "none", &error));
  EXPECT_TRUE(error && error->is(NSPOSIXErrorDomain, ENOTDIR));
  EXPECT_FALSE(fileBody(-1, &error));
  EXPECT_TRUE(error && error->is(NSPOSIXErrorDomain, EBADF));
  EXPECT_FALSE(fileBody(std::filesystem::path("/dev/null")));
}

}  // namespace
}  // namespace kvl::testing
