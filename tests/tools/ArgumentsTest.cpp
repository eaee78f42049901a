#include "tools/kvlocal/Arguments.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using kvlocal::FileInput;
using kvlocal::parseFileInput;
using kvlocal::parseTextInput;
using kvlocal::TextInput;
using testing::HasSubstr;

TextInput textOf(std::string_view text) {
  const auto parsed = parseTextInput(text);
  if (const auto* fault = std::get_if<std::string>(&parsed)) ADD_FAILURE() << *fault;
  return std::holds_alternative<TextInput>(parsed) ? std::get<TextInput>(parsed) : TextInput();
}

FileInput fileOf(std::string_view text) {
  const auto parsed = parseFileInput(text);
  if (const auto* fault = std::get_if<std::string>(&parsed)) ADD_FAILURE() << *fault;
  return std::holds_alternative<FileInput>(parsed) ? std::get<FileInput>(parsed) : FileInput();
}

TEST(FormInputTest, ATextIsSplitAtTheFirstEqualsSign) {
  EXPECT_EQ(textOf("a=b=c").name, "a");
  EXPECT_EQ(textOf("a=b=c").value, "b=c");
  EXPECT_EQ(textOf("a=").value, "");
  EXPECT_EQ(textOf("=b").name, "");
  EXPECT_EQ(textOf("a=@b;type=c").value, "@b;type=c");
  EXPECT_EQ(textOf("a=\"two\nlines\"").value, "\"two\nlines\"");
}

TEST(FormInputTest, AFileIsNamedAfterItsPath) {
  const FileInput input = fileOf("f=@some/folder/picture.png");
  EXPECT_EQ(input.name, "f");
  EXPECT_EQ(input.path, "some/folder/picture.png");
  EXPECT_EQ(input.filename, "picture.png");
  EXPECT_EQ(input.contentType, std::nullopt);
  EXPECT_EQ(fileOf("f=@-").filename, "");
  EXPECT_EQ(fileOf("f=@plain").filename, "plain");
}

TEST(FormInputTest, TypeAndFileNameComeInAnyOrder) {
  for (const auto* text :
       {"f=@a;type=image/png;filename=b c", "f=@a;filename=b c;type=image/png"}) {
    const FileInput input = fileOf(text);
    EXPECT_EQ(input.path, "a");
    EXPECT_EQ(input.contentType, "image/png");
    EXPECT_EQ(input.filename, "b c");
  }
  EXPECT_EQ(fileOf("f=@a;filename=").filename, "");
}

TEST(FormInputTest, OtherSemicolonsBelongToWhereTheyStand) {
  EXPECT_EQ(fileOf("f=@a;b").path, "a;b");
  EXPECT_EQ(fileOf("f=@a;=b;c d=e").path, "a;=b;c d=e");
  EXPECT_EQ(fileOf("f=@a;type=text/plain;charset=UTF-8").contentType, "text/plain;charset=UTF-8");
}

struct Fault {
  std::string text;
  const char* message;
};

class TextFaultTest : public testing::TestWithParam<Fault> {};

TEST_P(TextFaultTest, IsTold) {
  const auto parsed = parseTextInput(GetParam().text);
  ASSERT_TRUE(std::holds_alternative<std::string>(parsed));
  EXPECT_THAT(std::get<std::string>(parsed), HasSubstr(GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(Texts, TextFaultTest,
                         testing::Values(Fault{"", "is not NAME=VALUE"},
                                         Fault{"name", "is not NAME=VALUE"},
                                         Fault{"a\"b=c", "double quote"},
                                         Fault{"a\nb=c", "a name holds a control character"},
                                         Fault{"\xff=c", "a name is not UTF-8"},
                                         Fault{"a=\xff", "a value is not UTF-8"}));

class FileFaultTest : public testing::TestWithParam<Fault> {};

TEST_P(FileFaultTest, IsTold) {
  const auto parsed = parseFileInput(GetParam().text);
  ASSERT_TRUE(std::holds_alternative<std::string>(parsed));
  EXPECT_THAT(std::get<std::string>(parsed), HasSubstr(GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(
    Files, FileFaultTest,
    testing::Values(Fault{"", "is not NAME=@PATH"}, Fault{"a=b", "is not NAME=@PATH"},
                    Fault{"a@b", "is not NAME=@PATH"}, Fault{"a=@", "path of a file is empty"},
                    Fault{"a=@;type=b/c", "path of a file is empty"},
                    Fault{"a\"=@b", "double quote"},
                    Fault{"a=@b;type=c\nd", "a content type holds a control character"},
                    Fault{"a=@b;filename=c\rd", "a file name holds a control character"},
                    Fault{"a=@b\nc", "send it under another one: ;filename=NAME"},
                    Fault{"a=@b;Type=c/d", "\"Type\" is no parameter of a file"},
                    Fault{"a=@b;file-name=c;type=d/e", "\"file-name\" is no parameter of a file"},
                    Fault{"a=@b;filename=c;typ=d/e", "\"typ\" is no parameter of a file"},
                    Fault{"a=@b;type=c/d;filename=e;type=f/g", "one type, and two are given"},
                    Fault{"a=@b;filename=c;filename=d", "one filename, and two are given"},
                    Fault{"a=@b\xff", "a file name is not UTF-8"}));

TEST(ImageSizeTest, IsTwoNumbersAbove0) {
  EXPECT_EQ(kvlocal::sizeOf("16x32"), (kvl::Size{16, 32}));
  EXPECT_EQ(kvlocal::sizeOf("0.5x100000"), (kvl::Size{0.5, 100000}));
  EXPECT_EQ(kvlocal::sizeFault("1x1"), "");
  EXPECT_EQ(kvlocal::sizeOf(""), kvl::Size{});
}

TEST(ImageSizeTest, AnythingElseIsAFault) {
  for (const auto* text : {"", "x", "16", "16x", "x16", "0x16", "16x0", "-1x1", "1x1x1", "1 x 1",
                           "nanx1", "infx1", "1x1e9", "16X16"})
    EXPECT_NE(kvlocal::sizeFault(text), "") << text;
}

TEST(ImageSizeTest, IsShownWithoutNeedlessDigits) {
  EXPECT_EQ(kvlocal::sizeText({16, 0.5}), "16 x 0.5");
}

}  // namespace
