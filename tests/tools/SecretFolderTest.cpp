#include "tests/support/PrivateBus.h"
#include "tools/kvlocal/SecretFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace kvltest {
namespace {

using kvlocal::SecretFolder;
using testing::HasSubstr;
using testing::Optional;
using testing::UnorderedElementsAre;

namespace fs = std::filesystem;

constexpr std::array kFiles{SecretFolder::File{"first", "new"}, SecretFolder::File{"second", "new"},
                            SecretFolder::File{"third", "new"}};

class SecretFolderTest : public testing::Test {
 protected:
  [[nodiscard]] fs::path path() const { return directory_.path() / "folder"; }

  // What is wrong with writing all of the files.
  [[nodiscard]] std::string write(bool replaces) const {
    std::optional<std::string> fault;
    const SecretFolder folder(path(), fault);
    return fault ? *fault : folder.write(kFiles, replaces).value_or("");
  }

  void put(const std::string& name, const std::string& text) const {
    fs::create_directory(path());
    std::ofstream(path() / name) << text;
  }

  // "NAME: TEXT" of each file, and "NAME/" of each folder.
  [[nodiscard]] std::vector<std::string> entries() const {
    std::vector<std::string> result;
    for (const auto& entry : fs::directory_iterator(path())) {
      std::string text;
      if (entry.is_regular_file()) std::getline(std::ifstream(entry.path()), text);
      auto& line = result.emplace_back(entry.path().filename());
      line += entry.is_directory() ? "/" : ": " + text;
    }
    return result;
  }

  TemporaryDirectory directory_;
};

TEST_F(SecretFolderTest, WhatIsReplacedIsGone) {
  put("second", "old");
  EXPECT_EQ(write(true), "");
  EXPECT_THAT(entries(), UnorderedElementsAre("first: new", "second: new", "third: new"));
}

TEST_F(SecretFolderTest, AfterAFailureWhatWasThereIsThereAgain) {
  put("first", "old");
  fs::create_directory(path() / "third");  // after it has been asked what is there
  EXPECT_THAT(write(true), HasSubstr("/third\" cannot be written: File exists"));
  EXPECT_THAT(entries(), UnorderedElementsAre("first: old", "third/"));
}

// Also one that has come after it was asked what is there.
TEST_F(SecretFolderTest, ALinkInItIsNeitherFollowedNorReplaced) {
  put("other", "old");
  fs::create_symlink("other", path() / "second");
  std::optional<std::string> fault;
  EXPECT_THAT(SecretFolder(path(), fault).faultOf("second", true),
              Optional(HasSubstr("/second\" is no file that can be replaced")));
  EXPECT_THAT(write(true), HasSubstr("/second\" cannot be written: File exists"));
  EXPECT_TRUE(fs::is_symlink(path() / "second"));
  EXPECT_THAT(entries(), UnorderedElementsAre("other: old", "second: old"));
}

TEST_F(SecretFolderTest, NoLinkLeadsToIt) {
  fs::create_directory(directory_.path() / "real");
  fs::create_directory_symlink("real", path());
  EXPECT_THAT(write(false), HasSubstr("/folder\" is a symbolic link"));
  EXPECT_TRUE(fs::is_empty(directory_.path() / "real"));
}

TEST_F(SecretFolderTest, WithoutReplacingAllIsAsItWas) {
  put("third", "old");
  EXPECT_THAT(write(false), HasSubstr("/third\" cannot be written: File exists"));
  EXPECT_THAT(entries(), UnorderedElementsAre("third: old"));
}

TEST_F(SecretFolderTest, AFolderThatWasMadeForNothingGoes) {
  std::optional<std::string> fault;
  {
    const SecretFolder folder(path(), fault);
    EXPECT_TRUE(fs::is_directory(path()));
  }
  EXPECT_EQ(fault, std::nullopt);
  EXPECT_FALSE(fs::exists(path()));
  EXPECT_EQ(write(false), "");
  EXPECT_EQ(entries().size(), kFiles.size());
}

TEST_F(SecretFolderTest, AFolderThatWasThereStays) {
  fs::create_directory(path());
  std::optional<std::string> fault;
  {
    const SecretFolder folder(path(), fault);
  }
  EXPECT_TRUE(fs::is_directory(path()));
}

}  // namespace
}  // namespace kvltest
