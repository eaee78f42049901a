// What an open file holds, read when it is needed.
#pragma once

#include <local/platform/Error.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace kvl::core {

// Makes room in `text` for so many bytes more. ENOMEM when no memory holds them: a file can be
// larger than any.
[[nodiscard]] std::optional<Error> reserveMore(std::string& text, std::size_t size);

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

  // Fills the front of `room`, which is not empty, with what stands `done` bytes behind the
  // beginning, and says how many bytes; 0 at the end, which is where it was in the beginning, and
  // with an error when the file cannot be read or has become shorter.
  [[nodiscard]] std::size_t readAt(std::size_t done, std::span<char> room,
                                   std::optional<Error>* error) const;

  // Appends so many bytes to `text`. An error when the file cannot be read, has become shorter or
  // is too large for the memory; `text` then has some of them.
  [[nodiscard]] std::optional<Error> appendTo(std::string& text) const;

 private:
  const int descriptor_;
  const std::size_t offset_;
  const std::size_t size_;
};

}  // namespace kvl::core
