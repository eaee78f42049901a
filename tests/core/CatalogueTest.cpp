#include "platform/core/Catalogue.h"
#include "tests/support/CatalogueFile.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using kvl::core::Catalogue;
using kvltest::catalogueFile;

const std::map<std::string, std::string> kTexts{
    {"File", "Datei"},
    {std::string("window\4File"), "Ablage"},
    {std::string("1 key\0%1 keys", 13), std::string("1 Taste\0%1 Tasten", 17)},
    {"Open", ""},
};

TEST(CatalogueTest, HasTextsByContextAndForm) {
  const auto catalogue = Catalogue::make(catalogueFile(kTexts));
  ASSERT_TRUE(catalogue);
  EXPECT_EQ(catalogue->find({"File"}), "Datei");
  EXPECT_EQ(catalogue->find({"File", "window"}), "Ablage");
  EXPECT_EQ(catalogue->find({"1 key", {}, 1}), "1 Taste");
  EXPECT_EQ(catalogue->find({"1 key", {}, 2}), "%1 Tasten");
}

TEST(CatalogueTest, LacksWhatIsNotTranslated) {
  const auto catalogue = Catalogue::make(catalogueFile(kTexts));
  ASSERT_TRUE(catalogue);
  EXPECT_EQ(catalogue->find({"Folder"}), std::nullopt);
  EXPECT_EQ(catalogue->find({"Open"}), std::nullopt);
  EXPECT_EQ(catalogue->find({"File", "menu"}), std::nullopt);
  EXPECT_EQ(catalogue->find({""}), std::nullopt) << "the head is no text";
  EXPECT_EQ(catalogue->find({"File", {}, 2}), std::nullopt) << "there is no second form";
}

TEST(CatalogueTest, ReadsEitherOrderOfBytes) {
  const auto catalogue = Catalogue::make(catalogueFile(kTexts, kvltest::kGermanHead, true));
  ASSERT_TRUE(catalogue);
  EXPECT_EQ(catalogue->find({"File"}), "Datei");
}

TEST(CatalogueTest, IsInUTF8) {
  EXPECT_FALSE(
      Catalogue::make(catalogueFile(kTexts, "Content-Type: text/plain; charset=EUC-JP\n")));
  EXPECT_FALSE(Catalogue::make(catalogueFile(kTexts, "")));
  EXPECT_FALSE(Catalogue::make(catalogueFile({{"File", "Datei\xff"}})));
}

TEST(CatalogueTest, WithoutARuleOfPluralsHasNoForms) {
  const auto catalogue = Catalogue::make(catalogueFile(kTexts, "charset=UTF-8\n"));
  ASSERT_TRUE(catalogue);
  EXPECT_EQ(catalogue->find({"File"}), "Datei");
  EXPECT_EQ(catalogue->find({"1 key", {}, 2}), std::nullopt);
}

// Whatever stands in it, nothing outside is read, which the address sanitizer watches.
TEST(CatalogueTest, BrokenFilesAreRefusedOrReadWithinTheirEnds) {
  const std::string whole = catalogueFile(kTexts);
  const auto look = [](const std::string& content) {
    const auto catalogue = Catalogue::make(content);
    if (!catalogue) return false;
    for (const auto& [english, german] : kTexts) (void)catalogue->find({english, {}, 2});
    return true;
  };
  EXPECT_FALSE(look(""));
  EXPECT_FALSE(look("not a catalogue at all, just a text"));
  for (std::size_t length = 0; length + 1 < whole.size(); ++length)
    EXPECT_FALSE(look(whole.substr(0, length))) << length;
  for (std::size_t at = 0; at < whole.size(); ++at)
    for (const char byte : {'\0', '\x7f', '\xff'}) {
      std::string changed = whole;
      changed[at] = byte;
      (void)look(changed);
    }
}

}  // namespace
