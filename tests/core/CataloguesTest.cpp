#include "platform/core/Catalogues.h"
#include "platform/core/PartsFolder.h"
#include "tests/support/CatalogueFile.h"
#include "tests/support/LogCapture.h"
#include "tests/support/NoDescriptors.h"
#include "tests/support/Sanitized.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using kvl::core::Catalogues;
using kvltest::catalogueFile;
namespace fs = std::filesystem;

class CataloguesTest : public testing::Test {
 protected:
  CataloguesTest() {
    std::string pattern = testing::TempDir() + "catalogues-XXXXXX";
    folder_ = mkdtemp(pattern.data());
    add("de", catalogueFile({{"File", "Datei"}, {"Key", "Schlüssel"}}));
    add("ja", catalogueFile({{"File", "ファイル"}}));
    add("de_AT", catalogueFile({{"File", "Akt"}}));
  }
  ~CataloguesTest() override { fs::remove_all(folder_); }

  void add(const std::string& language, const std::string& content) const {
    const auto place = folder_ / "locale" / language / "LC_MESSAGES";
    fs::create_directories(place);
    std::ofstream(place / KVL_PARTS_FOLDER ".mo", std::ios::binary) << content;
  }

  std::string text(const std::string& locales, const std::string& english = "File") {
    return std::string(catalogues_.find(locales, {english}).value_or(english));
  }

  fs::path folder_;
  Catalogues catalogues_{
      [this] { return Catalogues::Folders{{folder_ / "none", folder_ / "locale"}}; }};
};

TEST_F(CataloguesTest, TheFirstLanguageThatHasATextCounts) {
  EXPECT_EQ(text("de_DE.UTF-8"), "Datei");
  EXPECT_EQ(text("ja:de"), "ファイル");
  EXPECT_EQ(text("ja:de", "Key"), "Schlüssel");
  EXPECT_EQ(text("xx_YY:ja"), "ファイル");
  EXPECT_EQ(text("::de"), "Datei");
}

TEST_F(CataloguesTest, TheCountrysOwnTextsComeFirst) {
  EXPECT_EQ(text("de_AT.UTF-8"), "Akt");
  EXPECT_EQ(text("de_AT@euro"), "Akt");
  EXPECT_EQ(text("de_AT.UTF-8", "Key"), "Schlüssel");
}

TEST_F(CataloguesTest, EnglishEndsTheSearch) {
  for (const char* locales : {"en", "en_GB.UTF-8", "C", "POSIX", "C.UTF-8", "en:de", "C:de", ""})
    EXPECT_EQ(text(locales), "File") << locales;
}

TEST_F(CataloguesTest, ALanguageWithoutACatalogueIsEnglish) {
  EXPECT_EQ(text("fr_FR.UTF-8"), "File");
  EXPECT_EQ(text(std::string(100000, 'x')), "File");
}

TEST_F(CataloguesTest, NamesLeadNowhereElse) {
  fs::create_directories(folder_ / "locale" / "x" / "LC_MESSAGES");
  for (const char* locale : {"../locale/de", "de/../de", "/", ".", "..", "de/"})
    EXPECT_EQ(text(locale), "File") << locale;
}

TEST_F(CataloguesTest, ABrokenCatalogueIsToldOnceAndLeavesEnglish) {
  add("fr", "broken");
  fs::create_directories(folder_ / "locale" / "es" / "LC_MESSAGES" / KVL_PARTS_FOLDER ".mo");
  const kvltest::LogCapture log;
  for (int i = 0; i < 3; ++i) EXPECT_EQ(text("fr:es"), "File");
  ASSERT_EQ(log.lines().size(), 2U);
  EXPECT_NE(log.lines().front().find("no catalogue of texts: "), std::string::npos);
  EXPECT_NE(log.lines().front().find("/fr/LC_MESSAGES/" KVL_PARTS_FOLDER ".mo"), std::string::npos);
}

TEST_F(CataloguesTest, AFileThatCannotBeOpenedNowIsReadLater) {
  EXPECT_EQ(text("ja"), "ファイル");  // the sanitizers' look at types that are new needs a pipe
  {
    const kvltest::NoDescriptors none;
    EXPECT_EQ(text("de"), "File");
  }
  EXPECT_EQ(text("de"), "Datei");
}

TEST_F(CataloguesTest, AFileIsReadOnce) {
  EXPECT_EQ(text("de"), "Datei");
  add("de", catalogueFile({{"File", "Dokument"}}));
  EXPECT_EQ(text("de"), "Datei");
}

TEST_F(CataloguesTest, ManyThreadsAskAtOnce) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([this] {
      for (int round = 0; round < 100; ++round) {
        EXPECT_EQ(text("de"), "Datei");
        EXPECT_EQ(text("ja:de", "Key"), "Schlüssel");
        EXPECT_EQ(text("fr"), "File");
      }
    });
  for (auto& thread : threads) thread.join();
}

TEST_F(CataloguesTest, AChildOfAForkGoesOn) {
  if (kvltest::kSanitized) GTEST_SKIP() << "sanitizers end such children";
  EXPECT_EQ(text("de"), "Datei");
  const pid_t child = fork();
  if (child == 0) _exit(text("de") == "Datei" && text("ja") == "ファイル" ? 0 : 1);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
