#include <local/platform/URL.h>

#include <gtest/gtest.h>

#include <string_view>
#include <utility>

namespace {

using kvl::URL;

std::string resolve(std::string_view reference, std::string_view base) {
  return URL::parse(reference)->resolvedAgainst(*URL::parse(base)).absoluteString();
}

// The examples of RFC 3986, 5.4, with the strict answer where it offers two.
TEST(URLTest, ResolvesTheExamplesOfTheRFC) {
  const std::pair<std::string_view, std::string_view> examples[] = {
      {"g:h", "g:h"},
      {"g", "http://a/b/c/g"},
      {"./g", "http://a/b/c/g"},
      {"g/", "http://a/b/c/g/"},
      {"/g", "http://a/g"},
      {"//g", "http://g"},
      {"?y", "http://a/b/c/d;p?y"},
      {"g?y", "http://a/b/c/g?y"},
      {"#s", "http://a/b/c/d;p?q#s"},
      {"g#s", "http://a/b/c/g#s"},
      {"g?y#s", "http://a/b/c/g?y#s"},
      {";x", "http://a/b/c/;x"},
      {"g;x", "http://a/b/c/g;x"},
      {"g;x?y#s", "http://a/b/c/g;x?y#s"},
      {"", "http://a/b/c/d;p?q"},
      {".", "http://a/b/c/"},
      {"./", "http://a/b/c/"},
      {"..", "http://a/b/"},
      {"../", "http://a/b/"},
      {"../g", "http://a/b/g"},
      {"../..", "http://a/"},
      {"../../", "http://a/"},
      {"../../g", "http://a/g"},
      {"../../../g", "http://a/g"},
      {"../../../../g", "http://a/g"},
      {"/./g", "http://a/g"},
      {"/../g", "http://a/g"},
      {"g.", "http://a/b/c/g."},
      {".g", "http://a/b/c/.g"},
      {"g..", "http://a/b/c/g.."},
      {"..g", "http://a/b/c/..g"},
      {"./../g", "http://a/b/g"},
      {"./g/.", "http://a/b/c/g/"},
      {"g/./h", "http://a/b/c/g/h"},
      {"g/../h", "http://a/b/c/h"},
      {"g;x=1/./y", "http://a/b/c/g;x=1/y"},
      {"g;x=1/../y", "http://a/b/c/y"},
      {"g?y/./x", "http://a/b/c/g?y/./x"},
      {"g?y/../x", "http://a/b/c/g?y/../x"},
      {"g#s/./x", "http://a/b/c/g#s/./x"},
      {"g#s/../x", "http://a/b/c/g#s/../x"},
      {"http:g", "http:g"},
  };
  for (const auto& [reference, target] : examples) {
    EXPECT_EQ(resolve(reference, "http://a/b/c/d;p?q"), target) << reference;
  }
}

TEST(URLTest, ResolvesAgainstABaseWithoutAPath) {
  EXPECT_EQ(resolve("g", "https://127.0.0.1:4321"), "https://127.0.0.1:4321/g");
  EXPECT_EQ(resolve("?q", "https://127.0.0.1:4321"), "https://127.0.0.1:4321?q");
  EXPECT_EQ(resolve("g", "https://127.0.0.1:4321/"), "https://127.0.0.1:4321/g");
}

TEST(URLTest, TakesDotsOutOfEveryPathThatItResolves) {
  EXPECT_EQ(resolve("//g/a/../b/./c", "http://a/b"), "http://g/b/c");
  EXPECT_EQ(resolve(".", "urn:x"), "urn:");
  EXPECT_EQ(resolve("..", "urn:x"), "urn:");
  EXPECT_EQ(resolve("../a", "urn:x"), "urn:a");
  EXPECT_EQ(resolve("./a", "urn:x"), "urn:a");
  EXPECT_EQ(resolve("a/..", "http://a/b/c"), "http://a/b/");
  EXPECT_EQ(resolve("a/.", "http://a/b/c"), "http://a/b/a/");
  EXPECT_EQ(resolve("...", "http://a/b/c"), "http://a/b/...");
}

TEST(URLTest, KeepsAnAbsoluteURLUnchanged) {
  for (const std::string_view text :
       {"https://host/a/../b/%7Ex", "HTTPS://Host:0443/./", "https://host", "mailto:a@b"}) {
    EXPECT_EQ(resolve(text, "https://other/base/"), text);
  }
}

TEST(URLTest, NeverMakesAnAuthorityOutOfAPath) {
  EXPECT_EQ(resolve("/.//g", "mem:/a"), "mem:/.//g");
}

TEST(URLTest, SplitsIntoComponents) {
  const auto url = *URL::parse("https://user@[::1]:8443/a/b?c=d#e");
  EXPECT_EQ(url.scheme(), "https");
  EXPECT_EQ(url.authority(), "user@[::1]:8443");
  EXPECT_EQ(url.host(), "::1");
  EXPECT_EQ(url.port(), 8443);
  EXPECT_EQ(url.path(), "/a/b");
  EXPECT_EQ(url.query(), "c=d");
  EXPECT_EQ(url.fragment(), "e");
}

TEST(URLTest, TellsEmptyComponentsFromAbsentOnes) {
  const auto empty = *URL::parse("https://?#");
  EXPECT_EQ(empty.host(), "");
  EXPECT_EQ(empty.query(), "");
  EXPECT_EQ(empty.fragment(), "");
  EXPECT_EQ(empty.port(), std::nullopt);
  const auto absent = *URL::parse("a/b");
  EXPECT_EQ(absent.scheme(), std::nullopt);
  EXPECT_EQ(absent.host(), std::nullopt);
  EXPECT_EQ(absent.query(), std::nullopt);
  EXPECT_EQ(absent.fragment(), std::nullopt);
  EXPECT_TRUE(URL::parse("")->absoluteString().empty());
}

TEST(URLTest, ReadsOnlyPortsThatExist) {
  EXPECT_EQ(URL::parse("https://h:65535")->port(), 65535);
  EXPECT_EQ(URL::parse("https://h:65536")->port(), std::nullopt);
  EXPECT_EQ(URL::parse("https://h:")->port(), std::nullopt);
}

TEST(URLTest, RefusesWhatTheGrammarDoesNotAllow) {
  for (const std::string_view text : {" ",
                                      "a b",
                                      "a\tb",
                                      "a\nb",
                                      "a\r\nb",
                                      "a\x7f",
                                      "caf\xc3\xa9",
                                      "%",
                                      "%4",
                                      "%zz",
                                      "a\\b",
                                      "a|b",
                                      "a\"b",
                                      "<a>",
                                      "a^b",
                                      "`",
                                      "{a}",
                                      "1a:b",
                                      ":a",
                                      "a#b#c",
                                      "https://h:80a/",
                                      "https://[::1/",
                                      "https://[]/",
                                      "https://h[/",
                                      "https://a b/",
                                      "[a]"}) {
    EXPECT_EQ(URL::parse(text), std::nullopt) << text;
  }
  EXPECT_EQ(URL::parse(std::string_view("a\0b", 3)), std::nullopt);
}

TEST(URLTest, AcceptsEveryCharacterOfTheGrammar) {
  for (const std::string_view text :
       {"-._~!$&'()*+,;=:@", "a/b:c", "./a:b", "%20%C3%A9", "%2f", "?%2f", "#%2f",
        "?/?:@-._~!$&'()*+,;=%20", "#/?:@-._~!$&'()*+,;=%20", "//u:p@h:1/", "//[v1.a:b]/",
        "a+b-c.d:x"}) {
    const auto relative = text.front() == '-' ? "./" + std::string(text) : std::string(text);
    EXPECT_NE(URL::parse(relative), std::nullopt) << text;
  }
}

}  // namespace
