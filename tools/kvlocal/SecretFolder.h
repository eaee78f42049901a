// A folder for files that nobody else may read or exchange.
#pragma once

#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace kvlocal {

class SecretFolder {
 public:
  struct File {
    const char* name;
    std::string_view content;
  };

  // Opens the folder, which is made when it is missing. No part of the path may be a link. The
  // folder must be the user's, and writable by nobody else; the folders that it is in must belong
  // to the user or to root, and may be writable by others only where those cannot rename what is
  // not theirs (the sticky bit). After a failure `fault` says why. A folder that was made goes at
  // the end when nothing has been written into it.
  SecretFolder(const std::filesystem::path& path, std::optional<std::string>& fault);
  ~SecretFolder();
  SecretFolder(const SecretFolder&) = delete;
  SecretFolder& operator=(const SecretFolder&) = delete;

  // Why a file of this name cannot be written: there is one, or what is to be replaced is none.
  [[nodiscard]] std::optional<std::string> faultOf(const char* name, bool replaces) const;

  // Writes all of the files or, after a failure that is told, none, and what was there before is
  // there again; each appears in one step, and with the mode 0600.
  [[nodiscard]] std::optional<std::string> write(std::span<const File> files, bool replaces) const;

 private:
  const std::filesystem::path path_;
  int descriptor_ = -1;
  bool isNew_ = false;
};

}  // namespace kvlocal
