#include "tools/kvlocal/SecretFolder.h"

#include <local/platform/Text.h>

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>
#include <vector>

namespace kvlocal {
namespace {

using Path = std::filesystem::path;

constexpr mode_t kOwnerOnlyFolder = 0700;
constexpr mode_t kOwnerOnlyFile = 0600;
constexpr mode_t kWritableByOthers = 022;

std::string failure(const Path& path, const std::string& why) {
  return kvl::jsonText(path.string()) + " " + why;
}

std::string systemFailure(const Path& path, const char* what, int error) {
  return failure(path, std::string(what) + ": " + std::strerror(error));
}

// Absolute and without dots: since there are no links, ".." is what stands before.
std::optional<Path> plainPath(const Path& path, std::optional<std::string>& fault) {
  std::error_code error;
  auto result = std::filesystem::absolute(path, error).lexically_normal();
  if (error) fault = failure(path, "cannot be found: " + error.message());
  if (!result.has_filename()) result = result.parent_path();  // it ended with a slash
  return fault ? std::nullopt : std::optional(std::move(result));
}

// What speaks against a folder on the way to the one that is meant.
std::optional<std::string> faultOfParent(const struct stat& status) {
  if (status.st_uid != geteuid() && status.st_uid != 0) return "belongs to another user";
  const bool isShared = (status.st_mode & kWritableByOthers) != 0;
  if (isShared && (status.st_mode & S_ISVTX) == 0) return "can be changed by other users";
  return std::nullopt;
}

std::optional<std::string> faultOfFolder(const struct stat& status) {
  if (status.st_uid != geteuid()) return "belongs to another user";
  if ((status.st_mode & kWritableByOthers) != 0) return "can be changed by other users";
  return std::nullopt;
}

// The folder `name` in `parent`, which is closed; -1 with a fault.
int enter(int parent, const Path& name, const Path& whole, std::optional<std::string>& fault) {
  constexpr int kFlags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
  const int descriptor = openat(parent, name.c_str(), kFlags);
  const int error = errno;
  close(parent);
  struct stat status{};
  if (descriptor < 0 || fstat(descriptor, &status) != 0) {
    fault = systemFailure(whole, "cannot be opened", error);
  } else if (S_ISLNK(status.st_mode)) {
    fault = failure(whole, "is a symbolic link");
  } else if (!S_ISDIR(status.st_mode)) {
    fault = failure(whole, "is no folder");
  }
  if (!fault || descriptor < 0) return descriptor;
  close(descriptor);
  return -1;
}

// Whether `folder` is as it must be, by `judge`.
template <class Judge>
bool isFit(int folder, const Path& whole, std::optional<std::string>& fault, const Judge& judge) {
  struct stat status{};
  if (fstat(folder, &status) != 0) {
    fault = systemFailure(whole, "cannot be looked at", errno);
  } else if (const auto why = judge(status)) {
    fault = failure(whole, *why);
  }
  return !fault;
}

int openFolder(const Path& path, std::optional<std::string>& fault) {
  Path reached = path.root_path();
  int folder = open(reached.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  for (const Path& name : path.relative_path()) {
    if (folder < 0 || !isFit(folder, reached, fault, faultOfParent)) break;
    reached /= name;
    if (reached == path) mkdirat(folder, name.c_str(), kOwnerOnlyFolder);  // it may be there
    folder = enter(folder, name, reached, fault);
  }
  if (folder >= 0 && !fault) isFit(folder, reached, fault, faultOfFolder);
  if (folder >= 0 && fault) close(std::exchange(folder, -1));
  return folder;
}

std::string temporaryName() {
  std::uint64_t number = 0;
  (void)!getrandom(&number, sizeof number, 0);
  std::array<char, 32> name{};
  std::snprintf(name.data(), name.size(), ".kvlocal-%016llx",
                static_cast<unsigned long long>(number));
  return name.data();
}

int writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(descriptor, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return 0;
}

// 0 or an error's number.
int writeNew(int folder, const std::string& name, std::string_view content) {
  const int descriptor = openat(
      folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kOwnerOnlyFile);
  if (descriptor < 0) return errno;
  int error = fchmod(descriptor, kOwnerOnlyFile) == 0 ? writeAll(descriptor, content) : errno;
  if (close(descriptor) != 0 && error == 0) error = errno;
  return error;
}

// The files under their temporary names, and which of them have their own by now. What is left
// undone at the end is taken back.
class Undertaking {
 public:
  Undertaking(int folder, bool replaces) : folder_(folder), replaces_(replaces) {}
  ~Undertaking() {
    for (const std::string& name : names_) unlinkat(folder_, name.c_str(), 0);
  }
  Undertaking(const Undertaking&) = delete;
  Undertaking& operator=(const Undertaking&) = delete;

  int add(std::string_view content) {
    names_.push_back(temporaryName());
    return writeNew(folder_, names_.back(), content);
  }
  // The file that was added as the `index`th.
  int finish(std::size_t index, const char* name) {
    const unsigned int flags = replaces_ ? 0 : RENAME_NOREPLACE;
    if (renameat2(folder_, names_[index].c_str(), folder_, name, flags) != 0) return errno;
    names_[index] = name;
    return 0;
  }
  void keep() { names_.clear(); }

 private:
  const int folder_;
  const bool replaces_;
  std::vector<std::string> names_;
};

}  // namespace

SecretFolder::SecretFolder(const Path& path, std::optional<std::string>& fault)
    : path_(plainPath(path, fault).value_or(path)) {
  if (!fault) descriptor_ = openFolder(path_, fault);
}

SecretFolder::~SecretFolder() {
  if (descriptor_ >= 0) close(descriptor_);
}

std::optional<std::string> SecretFolder::faultOf(const char* name, bool replaces) const {
  struct stat status{};
  if (fstatat(descriptor_, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
    return errno == ENOENT ? std::nullopt
                           : std::optional(systemFailure(path_ / name, "cannot be seen", errno));
  if (!replaces) return failure(path_ / name, "is there already");
  if (!S_ISREG(status.st_mode)) return failure(path_ / name, "is no file that can be replaced");
  return std::nullopt;
}

std::optional<std::string> SecretFolder::write(std::span<const File> files, bool replaces) const {
  Undertaking undertaking(descriptor_, replaces);
  const auto fault = [this](const File& file, int error) {
    return systemFailure(path_ / file.name, "cannot be written", error);
  };
  for (const File& file : files)
    if (const int error = undertaking.add(file.content)) return fault(file, error);
  for (std::size_t i = 0; i < files.size(); ++i)
    if (const int error = undertaking.finish(i, files[i].name)) return fault(files[i], error);
  undertaking.keep();
  return std::nullopt;
}

}  // namespace kvlocal
