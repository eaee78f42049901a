#include "platform/core/PluralForms.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using kvl::core::PluralForms;
using Forms = std::vector<std::size_t>;

Forms formsOf(const std::string& rule, const std::vector<std::uint64_t>& numbers) {
  const auto forms = PluralForms::parse(rule);
  if (!forms) return {};
  Forms found;
  for (const auto number : numbers) found.push_back(forms->formFor(number));
  return found;
}

TEST(PluralFormsTest, AreThoseOfTheLanguage) {
  EXPECT_EQ(formsOf("nplurals=2; plural=(n != 1);", {0, 1, 2, 21}), (Forms{1, 0, 1, 1}));
  EXPECT_EQ(formsOf("nplurals=1; plural=0;", {0, 1, 2}), (Forms{0, 0, 0}));
  EXPECT_EQ(formsOf("nplurals=2; plural=n>1", {0, 1, 2}), (Forms{0, 0, 1}));
  EXPECT_EQ(formsOf("nplurals=3; plural=(n%10==1 && n%100!=11 ? 0 : n%10>=2 && n%10<=4 && "
                    "(n%100<10 || n%100>=20) ? 1 : 2);",
                    {1, 11, 21, 2, 12, 22, 5, 0}),
            (Forms{0, 2, 0, 1, 2, 1, 2, 2}));
  EXPECT_EQ(formsOf("nplurals=6; plural=(n==0 ? 0 : n==1 ? 1 : n==2 ? 2 : n%100>=3 && n%100<=10 ? "
                    "3 : n%100>=11 ? 4 : 5);",
                    {0, 1, 2, 3, 11, 100}),
            (Forms{0, 1, 2, 3, 4, 5}));
}

TEST(PluralFormsTest, FollowTheOrderOfOperations) {
  EXPECT_EQ(formsOf("nplurals=8; plural=1+2*3;", {0}), Forms{7});
  EXPECT_EQ(formsOf("nplurals=8; plural=(1+2)*2-n/2;", {4}), Forms{4});
  EXPECT_EQ(formsOf("nplurals=2; plural=!n || n==5 && 0;", {0, 5}), (Forms{1, 0}));
  EXPECT_EQ(formsOf("nplurals=2; plural=!!n;", {0, 5}), (Forms{0, 1}));
}

TEST(PluralFormsTest, WithoutSuchAFormAreTheFirst) {
  EXPECT_EQ(formsOf("nplurals=2; plural=n;", {0, 1, 2, UINT64_MAX}), (Forms{0, 1, 0, 0}));
  EXPECT_EQ(formsOf("nplurals=2; plural=n/0+n%0;", {7}), Forms{0});
}

TEST(PluralFormsTest, OfNoExpressionAreNone) {
  for (const std::string& rule :
       {std::string(), std::string("nplurals=2;"), std::string("plural=0;"),
        std::string("nplurals=0; plural=0;"), std::string("nplurals=9; plural=0;"),
        std::string("nplurals=2; plural=n !=;"), std::string("nplurals=2; plural=(n;"),
        std::string("nplurals=2; plural=n ? 1;"), std::string("nplurals=2; plural=x;"),
        std::string("nplurals=2; plural=0 0;"),
        std::string("nplurals=2; plural=99999999999999999999;"),
        "nplurals=2; plural=" + std::string(100000, '(') + "n;"})
    EXPECT_FALSE(PluralForms::parse(rule)) << rule.substr(0, 50);
}

}  // namespace
