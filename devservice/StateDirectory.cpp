#include "devservice/StateDirectory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace devservice {
namespace {

constexpr mode_t kOwnerOnlyDirectory = 0700;
constexpr mode_t kOwnerOnlyFile = 0600;
constexpr mode_t kOthers = 077;

[[noreturn]] void fail(const std::filesystem::path& path, const std::string& why) {
  throw std::runtime_error(path.string() + ": " + why);
}

void writeAll(int descriptor, std::string_view text, const std::filesystem::path& path) {
  while (!text.empty()) {
    const ssize_t count = ::write(descriptor, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) fail(path, std::strerror(errno));
    text.remove_prefix(static_cast<std::size_t>(count));
  }
}

}  // namespace

StateDirectory::StateDirectory(std::filesystem::path path) : path_(std::move(path)) {
  if (mkdir(path_.c_str(), kOwnerOnlyDirectory) != 0 && errno != EEXIST)
    fail(path_, std::strerror(errno));
  struct stat status{};
  if (lstat(path_.c_str(), &status) != 0) fail(path_, std::strerror(errno));
  if (!S_ISDIR(status.st_mode)) fail(path_, "is not a directory");
  if (status.st_uid != getuid()) fail(path_, "belongs to another user");
  if ((status.st_mode & kOthers) != 0) fail(path_, "is open to other users (chmod 700 it)");
}

std::filesystem::path StateDirectory::defaultPath() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime != nullptr && *runtime != '\0') {
    return std::filesystem::path(runtime) / "kvlocal-dev";
  }
  return "/tmp/kvlocal-dev-" + std::to_string(getuid());
}

std::optional<std::string> StateDirectory::read(std::string_view name) const {
  std::ifstream stream(file(name), std::ios::binary);
  if (!stream) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(stream), {});
}

void StateDirectory::write(std::string_view name, std::string_view text) const {
  std::string temporary = file(name).string() + ".XXXXXX";
  const int descriptor = mkostemp(temporary.data(), O_CLOEXEC);
  if (descriptor < 0) fail(temporary, std::strerror(errno));
  fchmod(descriptor, kOwnerOnlyFile);
  writeAll(descriptor, text, temporary);
  close(descriptor);
  std::filesystem::rename(temporary, file(name));
}

void StateDirectory::remove(std::string_view name) const {
  std::error_code ignored;
  std::filesystem::remove(file(name), ignored);
}

StateLock::StateLock(const StateDirectory& directory)
    : descriptor_(
          open(directory.file("lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, kOwnerOnlyFile)) {
  if (descriptor_ < 0) fail(directory.file("lock"), std::strerror(errno));
  while (flock(descriptor_, LOCK_EX) != 0 && errno == EINTR) {
  }
}

StateLock::~StateLock() {
  close(descriptor_);
}

}  // namespace devservice
