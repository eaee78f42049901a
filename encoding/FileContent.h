// What an open file holds, read when it is needed.
#pragma once

#include <local/platform/Error.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

namespace kvl::encoding {

// The rest of a regular file from the offset that its descriptor had. Immutable; any thread.
class FileContent {
 public:
  // Keeps a duplicate of `descriptor`. Null with an error in NSPOSIXErrorDomain, EINVAL for what is
  // no regular file.
  [[nodiscard]] static std::shared_ptr<const FileContent> make(int descriptor,
                                                               std::optional<Error>* error);

  FileContent(int ownedDescriptor, std::size_t offset, std::size_t size) noexcept
      : descriptor_(ownedDescriptor), offset_(offset), size_(size) {}
  ~FileContent();
  FileContent(const FileContent&) = delete;
  FileContent& operator=(const FileContent&) = delete;

  // As it was in the beginning.
  [[nodiscard]] std::size_t size() const noexcept { return size_; }

  // Appends so many bytes to `text`. An error when the file cannot be read or has become shorter;
  // `text` then has some of them.
  [[nodiscard]] std::optional<Error> appendTo(std::string& text) const;

 private:
  const int descriptor_;
  const std::size_t offset_;
  const std::size_t size_;
};

}  // namespace kvl::encoding
