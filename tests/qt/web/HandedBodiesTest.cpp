// What the script of a page hands over, from pages that may write anything.
#include "qt/web/HandedBodies.h"

#include <gtest/gtest.h>

#include <utility>

namespace {

using kvl::qt::AnswerHeads;
using kvl::qt::bodyOfField;
using kvl::qt::HandedForms;

constexpr qsizetype kMost = qsizetype{16} << 20;

const QString kAddress = QStringLiteral("kvlocal://service/a?b");

QByteArray formOf(const QByteArray& address, const QByteArray& bytes) {
  return R"({"addresses":[")" + address + R"("],"bodies":[{"type":"text/plain","bytes":")" +
         bytes.toBase64() + R"("}]})";
}

TEST(HandedBodiesTest, BodiesHaveALimit) {
  EXPECT_EQ(bodyOfField(QByteArray(kMost, 'x').toBase64())->size(), kMost);
  EXPECT_FALSE(bodyOfField(QByteArray(kMost + 1, 'x').toBase64()).has_value());
  EXPECT_EQ(bodyOfField("")->size(), 0);
  EXPECT_FALSE(bodyOfField("no base64!").has_value());
}

TEST(HandedBodiesTest, FormsThatAreNoneAreDropped) {
  HandedForms forms;
  for (const char* json : {"", "[]", "{}", "null", R"({"addresses":[],"bodies":[]})",
                           R"({"addresses":["kvlocal://service/a"],"bodies":[]})",
                           R"({"addresses":["kvlocal://service/a"],"bodies":[{"bytes":"?"}]})",
                           R"({"addresses":7,"bodies":[1]})"})
    EXPECT_FALSE(forms.add(json)) << json;
  EXPECT_FALSE(forms.add(formOf("kvlocal://service/a?b", QByteArray(kMost + 1, 'x'))));
  EXPECT_TRUE(forms.add(formOf("kvlocal://service/a?b", QByteArray(kMost, 'x'))));
}

TEST(HandedBodiesTest, AnEncodingThatIsTooLargeCostsNoOther) {
  HandedForms forms;
  ASSERT_TRUE(forms.add(R"({"addresses":["kvlocal://service/a?b"],"bodies":[{"type":"text/html",)"
                        R"("bytes":")" +
                        QByteArray(kMost + 1, 'x').toBase64() +
                        R"("},{"type":"text/plain","bytes":"eA=="}]})"));
  const auto body = forms.take(kAddress, "text/plain");
  ASSERT_TRUE(body);
  EXPECT_EQ(body->bytes, "x");
}

TEST(HandedBodiesTest, ABodyIsForItsAddressAndEncodingOnce) {
  HandedForms forms;
  ASSERT_TRUE(forms.add(formOf("kvlocal://service/a?b#c", "1")));
  EXPECT_FALSE(forms.take(QStringLiteral("kvlocal://service/a"), "text/plain"));
  const auto body = forms.take(kAddress, "Text/Plain; charset=x");
  ASSERT_TRUE(body);
  EXPECT_EQ(body->bytes, "1");
  EXPECT_EQ(body->type, "text/plain");
  EXPECT_FALSE(forms.take(kAddress, "text/plain"));
  ASSERT_TRUE(forms.add(formOf("kvlocal://service/a?b", "1")));
  EXPECT_FALSE(forms.take(kAddress, "multipart/form-data"));
}

TEST(HandedBodiesTest, TheNewestCountsAndFewAreKept) {
  HandedForms forms;
  for (const char* bytes : {"old", "new"})
    ASSERT_TRUE(forms.add(formOf("kvlocal://service/a?b", bytes)));
  EXPECT_EQ(forms.take(kAddress, "text/plain")->bytes, "new");
  EXPECT_FALSE(forms.take(kAddress, "text/plain"));
  for (int i = 0; i < 5; ++i)
    ASSERT_TRUE(forms.add(formOf("kvlocal://service/" + QByteArray::number(i), "x")));
  EXPECT_FALSE(forms.take(QStringLiteral("kvlocal://service/0"), "text/plain"));
  EXPECT_TRUE(forms.take(QStringLiteral("kvlocal://service/1"), "text/plain"));
}

TEST(HandedBodiesTest, HeadsOfTheLatestAnswersAreKept) {
  AnswerHeads heads;
  kvl::URLResponse head{*kvl::URL::parse("https://localhost/"), 404, {}, 11};
  head.headers.append("A", "\xFC");
  head.headers.append("sEt-cookie", "secret");
  for (int i = 0; i <= 256; ++i) heads.add(QByteArray::number(i), head);
  EXPECT_EQ(heads.jsonOf("0"), QByteArray());
  EXPECT_EQ(heads.jsonOf("1"), R"({"fields":[["A","ü"]],"reason":"Not Found","status":404})");
  EXPECT_EQ(heads.jsonOf("257"), QByteArray());
}

TEST(HandedBodiesTest, FieldsThatHTTPForbidsAreKeptFromScripts) {
  AnswerHeads heads;
  kvl::URLResponse head{*kvl::URL::parse("https://localhost/"), 200, {}, 11};
  for (const auto& [name, value] : {std::pair{"A B", "1"}, {"C", "1\n2"}, {"D", "3"}})
    head.headers.append(name, value);
  heads.add("1", head);
  EXPECT_EQ(heads.jsonOf("1"), R"({"fields":[["D","3"]],"reason":"OK","status":200})");
}

}  // namespace
