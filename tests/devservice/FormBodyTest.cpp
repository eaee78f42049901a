#include "devservice/service/FormBody.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace kvltest {
namespace {

using devservice::FormPart;
using devservice::parseForm;
using testing::HasSubstr;

constexpr auto kType = "multipart/form-data; boundary=abcDEF012345";

std::vector<FormPart> partsOf(std::string_view body) {
  const auto parsed = parseForm(kType, body);
  if (const auto* fault = std::get_if<std::string>(&parsed)) ADD_FAILURE() << *fault;
  return std::holds_alternative<std::string>(parsed) ? std::vector<FormPart>()
                                                     : std::get<std::vector<FormPart>>(parsed);
}

TEST(FormBodyTest, OneTextIsSixLines) {
  const auto parts = partsOf(
      "--abcDEF012345\nContent-Disposition: form-data; name=\"note\"\n"
      "Content-Type: text/plain;charset=UTF-8\n\nhi\n--abcDEF012345--\n");
  ASSERT_EQ(parts.size(), 1U);
  EXPECT_EQ(parts[0].name, "note");
  EXPECT_EQ(parts[0].filename, std::nullopt);
  EXPECT_EQ(parts[0].contentType, "text/plain;charset=UTF-8");
  EXPECT_EQ(parts[0].content, "hi");
}

TEST(FormBodyTest, InputWithoutAValueHasNoContentType) {
  const auto parts =
      partsOf("--abcDEF012345\nContent-Disposition: form-data; name=\"\"\n\n\n--abcDEF012345--\n");
  ASSERT_EQ(parts.size(), 1U);
  EXPECT_EQ(parts[0].name, "");
  EXPECT_EQ(parts[0].contentType, std::nullopt);
  EXPECT_EQ(parts[0].content, "");
}

TEST(FormBodyTest, FilesKeepTheirBytesAndTheirOrder) {
  const std::string content("\n\r\n\n--abcDEF01234\0\n", 19);
  const std::string body =
      "--abcDEF012345\nContent-Disposition: form-data; name=\"a\"; filename=\"b c.bin\"\n"
      "Content-Type: image/png\n\n" +
      content +
      "\n--abcDEF012345\nContent-Disposition: form-data; name=\"z\"\n\n\n--abcDEF012345--\n";
  const auto parts = partsOf(body);
  ASSERT_EQ(parts.size(), 2U);
  EXPECT_EQ(parts[0].filename, "b c.bin");
  EXPECT_EQ(parts[0].contentType, "image/png");
  EXPECT_EQ(parts[0].content, content);
  EXPECT_EQ(parts[1].name, "z");
}

struct FaultCase {
  const char* type;
  const char* body;
  const char* fault;
};

class FormFaultTest : public testing::TestWithParam<FaultCase> {};

TEST_P(FormFaultTest, IsNamed) {
  const auto parsed = parseForm(GetParam().type, GetParam().body);
  ASSERT_TRUE(std::holds_alternative<std::string>(parsed));
  EXPECT_THAT(std::get<std::string>(parsed), HasSubstr(GetParam().fault));
}

INSTANTIATE_TEST_SUITE_P(
    Bodies, FormFaultTest,
    testing::Values(
        FaultCase{"multipart/form-data", "", "boundary is not twelve"},
        FaultCase{"multipart/form-data; boundary=\"abcDEF012345\"", "", "boundary is not twelve"},
        FaultCase{"multipart/form-data; boundary=abcDEF01234", "", "boundary is not twelve"},
        FaultCase{"multipart/form-data; boundary=abcDEF01234-", "", "boundary is not twelve"},
        FaultCase{"application/json", "{}", "boundary is not twelve"},
        FaultCase{kType, "", "first boundary is missing"},
        FaultCase{kType, "--abcDEF012345", "not followed by two hyphens and a line feed"},
        FaultCase{kType, "--abcDEF012345--\r\n", "not followed by two hyphens and a line feed"},
        FaultCase{kType, "--abcDEF012345--", "not followed by two hyphens and a line feed"},
        FaultCase{kType, "--abcDEF012345--\n\n", "not followed by two hyphens and a line feed"},
        FaultCase{kType, "--abcDEF012345\nx", "last boundary is missing"},
        FaultCase{kType, "--abcDEF012345\nx\n--abcDEF012345--\n", "part 1: no empty line"},
        FaultCase{kType, "--abcDEF012345\nContent-Type: a\n\n\n--abcDEF012345--\n", "disposition"},
        FaultCase{kType,
                  "--abcDEF012345\nContent-Disposition: form-data; name=\"a\"\r\nContent-Type: "
                  "a/b\r\n\n\n--abcDEF012345--\n",
                  "carriage return"},
        FaultCase{
            kType,
            "--abcDEF012345\nContent-Disposition: form-data; name=\"a\n\n\n--abcDEF012345--\n",
            "name does not end"},
        FaultCase{kType,
                  "--abcDEF012345\nContent-Disposition: form-data; name=\"a\"; "
                  "filename=\"b\"c\"\n\n\n--abcDEF012345--\n",
                  "file name does not end the line"},
        FaultCase{kType,
                  "--abcDEF012345\nContent-Disposition: form-data; name=\"a\"; "
                  "size=3\n\n\n--abcDEF012345--\n",
                  "something else than a file name"},
        FaultCase{kType,
                  "--abcDEF012345\nContent-Disposition: form-data; name=\"a\"\nX-Y: "
                  "z\n\n\n--abcDEF012345--\n",
                  "another header line"},
        FaultCase{kType,
                  "--abcDEF012345\nContent-Disposition: form-data; name=\"a\"\nContent-Type: "
                  "z\nContent-Type: z\n\n\n--abcDEF012345--\n",
                  "another header line"}));

}  // namespace
}  // namespace kvltest
