#include "platform/core/FileContent.h"

#include "platform/core/Sentence.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <new>
#include <vector>

namespace kvl::core {
namespace {

// Large enough for few calls, small enough to stay in the processor's cache.
constexpr std::size_t kFileBlock = std::size_t{256} << 10;

Error systemError(int code) {
  return {NSPOSIXErrorDomain, code};
}

Error shortenedError() {
  return {NSCocoaErrorDomain,
          NSFileReadUnknownError,
          {{NSLocalizedDescriptionKey,
            translatable("The file has become shorter while it was read.")}}};
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

std::size_t FileContent::readAt(std::size_t done, std::span<char> room,
                                std::optional<Error>* error) const {
  if (done >= size_) return 0;
  ssize_t count = -1;
  do {
    count = pread(descriptor_, room.data(), std::min(room.size(), size_ - done),
                  static_cast<off_t>(offset_ + done));
  } while (count < 0 && errno == EINTR);
  if (count > 0) return static_cast<std::size_t>(count);
  storeError(error, count < 0 ? systemError(errno) : shortenedError());
  return 0;
}

std::optional<Error> FileContent::appendTo(std::string& text) const {
  if (auto error = reserveMore(text, size_)) return error;
  std::vector<char> block(std::min(size_, kFileBlock));
  for (std::size_t done = 0; done < size_;) {
    std::optional<Error> error;
    const std::size_t count = readAt(done, block, &error);
    if (error) return error;
    text.append(block.data(), count);
    done += count;
  }
  return std::nullopt;
}

}  // namespace kvl::core
