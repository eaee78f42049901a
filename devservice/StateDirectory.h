// The directory in which the development programs meet.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace devservice {

// Holds ca.pem, ca.key, service.url and a lock. Readable by its owner only.
class StateDirectory {
 public:
  // Makes the directory when it is missing. Throws std::runtime_error when it cannot be made or is
  // not this user's own, private directory.
  explicit StateDirectory(std::filesystem::path path);

  // $XDG_RUNTIME_DIR/kvlocal-dev, else /tmp/kvlocal-dev-UID.
  [[nodiscard]] static std::filesystem::path defaultPath();

  [[nodiscard]] std::filesystem::path file(std::string_view name) const { return path_ / name; }
  [[nodiscard]] std::optional<std::string> read(std::string_view name) const;
  // Replaces the file in one step, readable by its owner only.
  void write(std::string_view name, std::string_view text) const;
  void remove(std::string_view name) const;

 private:
  std::filesystem::path path_;
};

// Keeps other processes out of a state directory's authority while it lives.
class StateLock {
 public:
  explicit StateLock(const StateDirectory& directory);
  ~StateLock();
  StateLock(const StateLock&) = delete;
  StateLock& operator=(const StateLock&) = delete;

 private:
  int descriptor_;
};

inline constexpr std::string_view kServiceURLFile = "service.url";

}  // namespace devservice
