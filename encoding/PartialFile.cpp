#include "encoding/PartialFile.h"

#include "encoding/FolderAccess.h"
#include "platform/core/Random.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <string_view>
#include <utility>

namespace kvl::encoding {
namespace {

// The process's mask takes away what it does not give to new files.
constexpr mode_t kNewFile = 0666;
constexpr int kMostAttempts = 100;
constexpr std::size_t kRandomLetters = 6;
// The longest name of a file has 255 bytes; a cut one leaves room for the rest.
constexpr std::size_t kLongestShownName = 200;

constexpr std::size_t kLongestContinuation = 3;

// Some file systems take whole characters only.
std::string_view shownPart(std::string_view name) {
  constexpr unsigned kMask = 0xc0;
  constexpr unsigned kContinuation = 0x80;
  if (name.size() <= kLongestShownName) return name;
  std::size_t size = kLongestShownName;
  while (size > kLongestShownName - kLongestContinuation &&
         (static_cast<unsigned char>(name[size]) & kMask) == kContinuation) {
    --size;
  }
  return name.substr(0, size);
}

std::string nameBeside(std::string_view name) {
  constexpr std::string_view kLetters = "abcdefghijklmnopqrstuvwxyz0123456789";
  const core::ByteSource random = core::StrongRandom();
  std::string text = "." + std::string(shownPart(name)) + ".";
  for (std::size_t i = 0; i < kRandomLetters; ++i)
    text += kLetters[core::uniformDraw(kLetters.size(), random)];
  return text;
}

}  // namespace

Error PartialFile::failure(int number) const {
  return {NSPOSIXErrorDomain, number, {{NSFilePathErrorKey, target_.string()}}};
}

std::optional<Error> PartialFile::open() {
  const std::string name = target_.filename().string();
  if (name.empty() || name == "." || name == "..") return failure(EISDIR);
  folder_ = openFolder(target_.parent_path().c_str());
  if (folder_ < 0) return failure(errno);
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    const std::string beside = nameBeside(name);
    descriptor_ = openat(folder_, beside.c_str(),
                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kNewFile);
    if (descriptor_ >= 0) {
      name_ = beside;
      return std::nullopt;
    }
    if (errno != EEXIST) break;
  }
  return failure(errno);
}

std::optional<Error> PartialFile::write(const Data& data) {
  std::string_view rest = data.text();
  while (!rest.empty()) {
    const ssize_t count = ::write(descriptor_, rest.data(), rest.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return failure(errno);
    rest.remove_prefix(static_cast<std::size_t>(count));
  }
  return std::nullopt;
}

std::optional<Error> PartialFile::moveToTarget(bool replaces) {
  // Some file systems say only now what they could not write.
  if (::close(std::exchange(descriptor_, -1)) != 0 && errno != EINTR) return failure(errno);
  const std::string name = target_.filename().string();
  const int result = replaces ? renameat(folder_, name_.c_str(), folder_, name.c_str())
                              : moveWithoutReplacing(folder_, name_.c_str(), name.c_str());
  if (result != 0) return failure(errno);
  name_.clear();
  close();
  return std::nullopt;
}

void PartialFile::remove() noexcept {
  if (!name_.empty()) unlinkat(folder_, name_.c_str(), 0);
  name_.clear();
  close();
}

void PartialFile::close() noexcept {
  if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
  if (folder_ >= 0) ::close(std::exchange(folder_, -1));
}

}  // namespace kvl::encoding
