#include "platform/interface/ImageModule.h"
#include "tests/support/LogCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>

namespace {

namespace fs = std::filesystem;
using kvl::interface::imageModulePlaces;
using kvl::interface::loadImageModule;

TEST(ImageModuleTest, LiesBesideThePrograms) {
  const auto places = imageModulePlaces();
  EXPECT_TRUE(std::ranges::any_of(places, [](const auto& place) { return fs::exists(place); }));
  EXPECT_NE(kvl::interface::imageModule(), nullptr);
}

TEST(ImageModuleTest, IsNullWithOneLineInTheLogWhenThereIsNone) {
  const kvltest::LogCapture log;
  EXPECT_EQ(loadImageModule({"/nonexistent/a.so", "/nonexistent/b.so"}), nullptr);
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"no images: there is no kvlocal/libkvlocal-images.so"});
}

TEST(ImageModuleTest, IsNullWithOneLineInTheLogWhenItIsNoLibrary) {
  const auto file = fs::path(testing::TempDir()) / "no-library.so";
  std::ofstream(file) << "no library";
  const kvltest::LogCapture log;
  EXPECT_EQ(loadImageModule({file}), nullptr);
  EXPECT_EQ(log.count("no images: "), 1U);
  EXPECT_EQ(log.lines().size(), 1U);
  fs::remove(file);
}

TEST(ImageModuleTest, IsNullWithOneLineInTheLogWhenItIsOfAnotherVersion) {
  const kvltest::LogCapture log;
  EXPECT_EQ(loadImageModule({KVL_OTHER_IMAGE_MODULE}), nullptr);
  EXPECT_EQ(log.lines(), std::vector<std::string>{"no images: " KVL_OTHER_IMAGE_MODULE
                                                  " is of another version"});
}

TEST(ImageModuleTest, SpeaksThisVersionOnly) {
  const auto* const functions = loadImageModule(imageModulePlaces());
  ASSERT_NE(functions, nullptr);
  EXPECT_EQ(loadImageModule(imageModulePlaces()), functions);
}

}  // namespace
