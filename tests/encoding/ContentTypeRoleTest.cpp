#include "encoding/ContentTypeRole.h"
#include "tests/support/Joined.h"

#include <local/platform/SystemVersion.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using kvl::encoding::contentTypeOf;
using kvl::encoding::contentTypeParameters;
using kvl::encoding::hasTemplateRole;
using kvltest::joined;
using Parameters = kvl::encoding::ContentTypeParameters;

struct RoleCase {
  std::string_view text;
  Parameters parameters;
};

TEST(ContentTypeParametersTest, FollowTheTable) {
  const RoleCase table[] = {
      {"image/png; role=template", {{"role", "template"}}},
      {"image/png;role=template", {{"role", "template"}}},
      // A value runs to a comma, not to a semicolon.
      {"image/png; charset=x; role=template", {{"charset", "x; role=template"}}},
      {"image/png; role=a; role=b", {{"role", "a; role=b"}}},
      // The comma begins the name behind it.
      {"image/png; charset=x, role=template", {{"charset", "x"}, {", role", "template"}}},
      {"image/png; a=1,b=2,c=3", {{"a", "1"}, {",b", "2"}, {",c", "3"}}},
      // A later one replaces an earlier one.
      {"image/png; a=1,b=2,b=3", {{"a", "1"}, {",b", "3"}}},
      {"image/png; a=1,b=2,b=", {{"a", "1"}, {",b", "2"}}},
      // White space is skipped before each part and kept behind it.
      {" \t\r\n image/png \t; \r\n role= \t template ", {{"role", "template "}}},
      {"image/png; role =template", {{"role ", "template"}}},
      {"image/png; a=1 , b=2", {{"a", "1 "}, {", b", "2"}}},
      {"image/png;\v\f\u0085\u00a0\u1680\u2003\u2028\u3000role=\u2029template",
       {{"role", "template"}}},
      // No media type, no parameters.
      {"", {}},
      {"   ", {}},
      {"; role=template", {}},
      {" ;role=template", {}},
      // Without a semicolon everything is the media type.
      {"role=template", {}},
      {"image/png", {}},
      {"image/png;", {}},
      {"image/png; ", {}},
      // A comma or an equals sign is part of a media type.
      {"a=b,c; role=template", {{"role", "template"}}},
      // Names and values that are empty.
      {"image/png; =template", {}},
      {"image/png; =x,role=template", {}},
      {"image/png; role", {}},
      {"image/png; role=", {}},
      {"image/png; role= ", {}},
      {"image/png; role=,b=2", {{",b", "2"}}},
      {"image/png; role==template", {{"role", "=template"}}},
      {"image/png;; role=template", {{"; role", "template"}}},
      {"image/png; role=\"template\"", {{"role", "\"template\""}}},
      {"image/png; a, role=template", {{"a, role", "template"}}},
  };
  for (const auto& [text, parameters] : table) {
    EXPECT_EQ(contentTypeParameters(text), parameters) << text;
  }
}

TEST(ContentTypeParametersTest, AllWhiteSpaceOfUnicodeIsSkippedAndNothingElse) {
  for (const std::string_view space :
       {" ",      "\t",     "\n",     "\v",     "\f",     "\r",     "\u0085", "\u00a0", "\u1680",
        "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006", "\u2007", "\u2008",
        "\u2009", "\u200a", "\u2028", "\u2029", "\u202f", "\u205f", "\u3000"}) {
    const auto text = joined({space, "t", space, ";", space, "a=", space, space, "b", space});
    const auto value = joined({"b", space});
    EXPECT_EQ(contentTypeParameters(text), (Parameters{{"a", value}}))
        << testing::PrintToString(space);
    EXPECT_TRUE(contentTypeParameters(joined({space, ";a=b"})).empty())
        << testing::PrintToString(space);
  }
  for (const std::string_view character : {"\x1c", "\x1f", "\x08", "\u0084", "\u180e", "\u1fff",
                                           "\u200b", "\u2027", "\u202a", "\u2060", "\ufeff"}) {
    const auto text = joined({"t;", character, "a=", character, "b"});
    const auto name = joined({character, "a"});
    const auto value = joined({character, "b"});
    EXPECT_EQ(contentTypeParameters(text), (Parameters{{name, value}}))
        << testing::PrintToString(character);
  }
}

TEST(ContentTypeParametersTest, TextMayHoldAnyBytes) {
  const std::string text("t;\0a\xff=\x80\xe2\x80,", 10);
  const Parameters expected{{std::string_view(text).substr(2, 3), "\x80\xe2\x80"}};
  EXPECT_EQ(contentTypeParameters(text), expected);
}

TEST(TemplateRoleTest, IsARoleThatContainsTheWord) {
  EXPECT_TRUE(hasTemplateRole("image/png; role=template"));
  EXPECT_TRUE(hasTemplateRole("image/png; role=nontemplate"));
  EXPECT_TRUE(hasTemplateRole("image/png; role=\"a template, they say\""));
  EXPECT_TRUE(hasTemplateRole("image/png; role=x; other=template"));
}

TEST(TemplateRoleTest, IsNothingElse) {
  EXPECT_FALSE(hasTemplateRole(""));
  EXPECT_FALSE(hasTemplateRole("image/png"));
  EXPECT_FALSE(hasTemplateRole("template; role=other"));
  EXPECT_FALSE(hasTemplateRole("image/png; charset=x; role=template"));
  EXPECT_FALSE(hasTemplateRole("image/png; charset=x, role=template"));
  EXPECT_FALSE(hasTemplateRole("image/png; role=x, template"));
  EXPECT_FALSE(hasTemplateRole("image/png; Role=template"));
  EXPECT_FALSE(hasTemplateRole("image/png; role=Template"));
  EXPECT_FALSE(hasTemplateRole("image/png; role =template"));
  EXPECT_FALSE(hasTemplateRole("image/png; rolex=template"));
}

class ContentTypeFieldTest : public testing::Test {
 protected:
  ~ContentTypeFieldTest() override { kvl::setSystemVersion(kvl::kDefaultSystemVersion); }

  static kvl::URLResponse responseWithField(std::string_view name) {
    kvl::URLResponse response{*kvl::URL::parse("https://h/a"), 200, {}, 11};
    response.headers.set("Server", "s");
    response.headers.set(name, "t");
    return response;
  }
};

TEST_F(ContentTypeFieldTest, IsFoundByItsExactNameOnEverySystem) {
  for (const kvl::SystemVersion version : {kvl::SystemVersion{10, 14}, {10, 15}, {15, 0}}) {
    kvl::setSystemVersion(version);
    EXPECT_EQ(contentTypeOf(responseWithField("Content-Type")), "t");
    EXPECT_EQ(contentTypeOf(responseWithField("Content-Types")), std::nullopt);
  }
}

TEST_F(ContentTypeFieldTest, IsFoundInAnyCaseFrom10Point15On) {
  kvl::setSystemVersion({10, 14});
  EXPECT_EQ(contentTypeOf(responseWithField("content-type")), std::nullopt);
  EXPECT_EQ(contentTypeOf(responseWithField("CONTENT-TYPE")), std::nullopt);
  kvl::setSystemVersion({10, 15});
  EXPECT_EQ(contentTypeOf(responseWithField("content-type")), "t");
  EXPECT_EQ(contentTypeOf(responseWithField("CONTENT-TYPE")), "t");
}

TEST_F(ContentTypeFieldTest, BelongsToHTTPResponsesOnly) {
  auto response = responseWithField("Content-Type");
  response.httpStatusCode.reset();
  EXPECT_EQ(contentTypeOf(response), std::nullopt);
}

}  // namespace
