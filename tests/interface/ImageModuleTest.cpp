#include "platform/interface/ImageModule.h"
#include "tests/interface/ImageFolder.h"
#include "tests/support/LogCapture.h"

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <filesystem>

namespace {

namespace fs = std::filesystem;
using kvl::interface::imageModulePlaces;
using kvl::interface::loadImageModule;

fs::path presentModule() {
  for (const auto& place : imageModulePlaces()) {
    if (fs::exists(place)) return place;
  }
  return {};
}

TEST(ImageModuleTest, LiesBesideThePrograms) {
  EXPECT_FALSE(presentModule().empty());
  EXPECT_NE(kvl::interface::imageModule(), nullptr);
}

// No file of this process gets a descriptor while this exists.
class NoDescriptors {
 public:
  NoDescriptors() {
    EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &usual_), 0);
    const rlimit none{0, usual_.rlim_max};
    EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  }
  ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &usual_); }
  NoDescriptors(const NoDescriptors&) = delete;
  NoDescriptors& operator=(const NoDescriptors&) = delete;

 private:
  rlimit usual_{};
};

TEST(ImageModuleTest, IsLookedForOnce) {
  const auto* const functions = kvl::interface::imageModule();
  ASSERT_NE(functions, nullptr);
  const NoDescriptors none;
  EXPECT_EQ(kvl::interface::imageModule(), functions);
}

TEST(ImageModuleTest, LiesThereWhicheverFolderTheProcessIsIn) {
  const auto places = imageModulePlaces();
  const kvltest::ImageFolder folder;
  const kvltest::WorkingDirectory inside(folder.path());
  EXPECT_EQ(imageModulePlaces(), places);
  EXPECT_TRUE(std::ranges::all_of(places, [](const auto& place) { return place.is_absolute(); }));
}

TEST(ImageModuleTest, IsNeverTakenFromTheWorkingDirectory) {
  const kvltest::ImageFolder folder;
  fs::create_symlink(presentModule(), folder.path() / "module.so");
  const kvltest::WorkingDirectory inside(folder.path());
  const kvltest::LogCapture log;
  EXPECT_EQ(loadImageModule({"module.so", "./module.so"}), nullptr);
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"no images: there is no kvlocal/libkvlocal-images.so"});
  EXPECT_NE(loadImageModule({"module.so", folder.path() / "module.so"}), nullptr);
}

TEST(ImageModuleTest, IsNullWithOneLineInTheLogWhenThereIsNone) {
  const kvltest::LogCapture log;
  EXPECT_EQ(loadImageModule({"/nonexistent/a.so", "/nonexistent/b.so"}), nullptr);
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"no images: there is no kvlocal/libkvlocal-images.so"});
}

TEST(ImageModuleTest, IsNullWithOneLineInTheLogWhenItIsNoLibrary) {
  const kvltest::ImageFolder folder;
  const auto file = folder.write("no-library.so", "no library");
  const kvltest::LogCapture log;
  EXPECT_EQ(loadImageModule({file}), nullptr);
  EXPECT_EQ(log.count("no images: "), 1U);
  EXPECT_EQ(log.lines().size(), 1U);
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

  void* const module = dlopen(presentModule().c_str(), RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(module, nullptr);
  const auto entryPoint =
      reinterpret_cast<KVLImageEntryPoint>(dlsym(module, kvl::interface::kImageEntryPointName));
  ASSERT_NE(entryPoint, nullptr);
  EXPECT_EQ(entryPoint(kvl::interface::kImageModuleVersion), functions);
  EXPECT_EQ(entryPoint(kvl::interface::kImageModuleVersion + 1), nullptr);
  EXPECT_EQ(entryPoint(0), nullptr);
  dlclose(module);
}

}  // namespace
