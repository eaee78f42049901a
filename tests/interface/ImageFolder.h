// A folder for one test, which goes with it, and the working directory.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace kvltest {

class ImageFolder {
 public:
  ImageFolder() {
    std::string name = testing::TempDir() + "/kvl-images-XXXXXX";
    EXPECT_NE(mkdtemp(name.data()), nullptr);
    path_ = name;
  }
  ~ImageFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }
  ImageFolder(const ImageFolder&) = delete;
  ImageFolder& operator=(const ImageFolder&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  // The path of the new file.
  [[nodiscard]] std::string write(const char* name, std::string_view content) const {
    std::ofstream(path_ / name, std::ios::binary) << content;
    return path_ / name;
  }

 private:
  std::filesystem::path path_;
};

// While it exists the process is in that folder.
class WorkingDirectory {
 public:
  explicit WorkingDirectory(const std::filesystem::path& folder) {
    std::filesystem::current_path(folder);
  }
  ~WorkingDirectory() {
    std::error_code error;
    std::filesystem::current_path(previous_, error);
  }
  WorkingDirectory(const WorkingDirectory&) = delete;
  WorkingDirectory& operator=(const WorkingDirectory&) = delete;

 private:
  std::filesystem::path previous_ = std::filesystem::current_path();
};

}  // namespace kvltest
