// kvlocal image with the development service.
#include "tests/tools/ServiceFixture.h"

#include <gmock/gmock.h>

#include <filesystem>

namespace kvltest {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

constexpr auto kTemplate = "/image?format=svg&side=32&role=template";

class ImageTest : public ServiceTest {
 protected:
  const std::string path = directory.path() / "image";
};

TEST_F(ImageTest, TellsSizeAndRole) {
  const Outcome outcome = run({"image", kTemplate, "--size", "64x64"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(outcome.output,
            "size        64 x 64\n"
            "natural     32 x 32\n"
            "template    yes\n"
            "bytes       112\n");
  EXPECT_THAT(outcome.errors, IsEmpty());
}

TEST_F(ImageTest, KeepsTheImageAsItCame) {
  const Outcome outcome = run({"image", kTemplate, "-o", path});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(fileText("image"), run({"get", kTemplate}).output);
}

TEST_F(ImageTest, WritesTheImageToStandardOutputWhenAskedFor) {
  const Outcome outcome = run({"image", "/image", "--output", "-"});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(outcome.output, run({"get", "/image"}).output);
}

TEST_F(ImageTest, AsJSONIsOneObject) {
  const Outcome outcome = run({"image", "/image", "--json", "-o", path});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_THAT(outcome.output,
              AllOf(StartsWith(R"({"url":"https://)"),
                    EndsWith("\"size\":{\"width\":16,\"height\":16},\"naturalSize\":{\"width\":16,"
                             "\"height\":16},\"template\":false,\"bytes\":104}\n")));
}

TEST_F(ImageTest, AnswerWithoutAnImageIsAFailure) {
  const Outcome outcome = run({"image", "/status", "-o", path});
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_EQ(outcome.errors, "kvlocal: the answer holds no image\n");
  EXPECT_THAT(outcome.output, IsEmpty());
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(run({"image", "/code?status=404"}).exitCode, 1);
  EXPECT_THAT(run({"image", "/status", "--json"}).output, StartsWith(R"({"error":{"domain":)"));
}

TEST_F(ImageTest, AnErrorStatusIsToldAsOne) {
  EXPECT_EQ(run({"image", "/code?status=404"}).errors,
            "kvlocal: the service answered with HTTP status 404\n");
}

TEST_F(ImageTest, ARequestThatFailsIsToldByTheExitCode) {
  const Outcome outcome = run({"image", "https://127.0.0.1:1/"});
  EXPECT_EQ(outcome.exitCode, 4);
  EXPECT_THAT(outcome.errors, StartsWith("kvlocal: the request failed: "));
}

TEST_F(ImageTest, FileThatCannotBeWrittenIsAnErrorOfItsOwn) {
  const Outcome missing = run({"image", "/image", "-o", "/nonexistent/image"});
  EXPECT_EQ(missing.exitCode, 6);
  EXPECT_EQ(missing.errors,
            "kvlocal: \"/nonexistent/image\" cannot be written: No such file or directory\n");
  EXPECT_THAT(missing.output, IsEmpty());
  const Outcome full = run({"image", "/image", "-o", "/dev/full"});
  EXPECT_EQ(full.exitCode, 6);
  EXPECT_THAT(full.errors, HasSubstr("No space left on device"));
  EXPECT_THAT(run({"image", "/image", "--json", "-o", "/dev/full"}).output,
              StartsWith(R"({"error":{"domain":"kvlocal","code":6,)"));
}

}  // namespace
}  // namespace kvltest
