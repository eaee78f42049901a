// A file that is written beside its name and takes it once it is whole.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Error.h>

#include <filesystem>
#include <optional>
#include <string>
#include <utility>

namespace kvl::encoding {

// Errors are those of errno, with the path. One thread at a time. Removed when destroyed before it
// has its name.
class PartialFile {
 public:
  // @pre `target` is absolute
  explicit PartialFile(std::filesystem::path target) : target_(std::move(target)) {}
  ~PartialFile() { remove(); }
  PartialFile(const PartialFile&) = delete;
  PartialFile& operator=(const PartialFile&) = delete;

  [[nodiscard]] const std::filesystem::path& target() const noexcept { return target_; }
  [[nodiscard]] std::optional<Error> open();
  [[nodiscard]] std::optional<Error> write(const Data& data);
  // Unless it `replaces`, a file of that name is an error: EEXIST.
  [[nodiscard]] std::optional<Error> moveToTarget(bool replaces);
  // Nothing when it is not open.
  void remove() noexcept;

 private:
  [[nodiscard]] Error failure(int number) const;
  void close() noexcept;

  const std::filesystem::path target_;
  std::string name_;  // beside the target; empty: there is no file
  int folder_ = -1;   // stays the same whatever its name becomes
  int descriptor_ = -1;
};

}  // namespace kvl::encoding
