#include "encoding/FileContent.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <vector>

namespace kvl::encoding {
namespace {

// Large enough for few calls, small enough to stay in the processor's cache.
constexpr std::size_t kBlock = std::size_t{256} << 10;

Error systemError(int code) {
  return {NSPOSIXErrorDomain, code};
}

Error shortenedError() {
  return {NSCocoaErrorDomain,
          NSFileReadUnknownError,
          {{NSLocalizedDescriptionKey, "The file has become shorter while it was read."}}};
}

}  // namespace

std::shared_ptr<const FileContent> FileContent::make(int descriptor, std::optional<Error>* error) {
  struct stat status{};
  if (fstat(descriptor, &status) != 0) {
    storeError(error, systemError(errno));
    return nullptr;
  }
  const off_t offset = S_ISREG(status.st_mode) ? lseek(descriptor, 0, SEEK_CUR) : -1;
  if (offset < 0) {
    storeError(error, systemError(EINVAL));
    return nullptr;
  }
  const int own = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
  if (own < 0) {
    storeError(error, systemError(errno));
    return nullptr;
  }
  const auto size = static_cast<std::size_t>(std::max<off_t>(status.st_size - offset, 0));
  return std::make_shared<FileContent>(own, static_cast<std::size_t>(offset), size);
}

FileContent::~FileContent() {
  close(descriptor_);
}

std::optional<Error> reserveMore(std::string& text, std::size_t size) {
  if (size > text.max_size() - text.size()) return systemError(ENOMEM);
  try {
    text.reserve(text.size() + size);
  } catch (const std::bad_alloc&) {
    return systemError(ENOMEM);
  }
  return std::nullopt;
}

std::optional<Error> FileContent::appendTo(std::string& text) const {
  if (auto error = reserveMore(text, size_)) return error;
  std::vector<char> block(std::min(size_, kBlock));
  for (std::size_t done = 0; done < size_;) {
    const ssize_t count = pread(descriptor_, block.data(), std::min(block.size(), size_ - done),
                                static_cast<off_t>(offset_ + done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return systemError(errno);
    if (count == 0) return shortenedError();
    text.append(block.data(), static_cast<std::size_t>(count));
    done += static_cast<std::size_t>(count);
  }
  return std::nullopt;
}

}  // namespace kvl::encoding
