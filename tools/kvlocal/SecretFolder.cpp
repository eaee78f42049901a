#include "tools/kvlocal/SecretFolder.h"

#include "tools/kvlocal/Words.h"

#include <local/platform/Text.h>

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <utility>
#include <vector>

namespace kvlocal {
namespace {

using Path = std::filesystem::path;

constexpr mode_t kOwnerOnlyFolder = 0700;
constexpr mode_t kOwnerOnlyFile = 0600;
constexpr mode_t kWritableByOthers = 022;

std::string failure(const Path& path, std::string_view pattern) {
  return tr(pattern, kvl::jsonText(path.string()));
}

std::string systemFailure(const Path& path, const char* pattern, int error) {
  return tr(pattern, kvl::jsonText(path.string()), systemWords(error));
}

// Absolute and without dots: since there are no links, ".." is what stands before.
std::optional<Path> plainPath(const Path& path, std::optional<std::string>& fault) {
  std::error_code error;
  auto result = std::filesystem::absolute(path, error).lexically_normal();
  if (error) fault = systemFailure(path, translatable("%@ cannot be found: %@"), error.value());
  if (!result.has_filename()) result = result.parent_path();  // it ended with a slash
  return fault ? std::nullopt : std::optional(std::move(result));
}

// What speaks against a folder on the way to the one that is meant.
std::optional<std::string_view> faultOfParent(const struct stat& status) {
  if (status.st_uid != geteuid() && status.st_uid != 0)
    return translatable("%@ belongs to another user");
  const bool isShared = (status.st_mode & kWritableByOthers) != 0;
  if (isShared && (status.st_mode & S_ISVTX) == 0)
    return translatable("%@ can be changed by other users");
  return std::nullopt;
}

std::optional<std::string_view> faultOfFolder(const struct stat& status) {
  if (status.st_uid != geteuid()) return translatable("%@ belongs to another user");
  if ((status.st_mode & kWritableByOthers) != 0)
    return translatable("%@ can be changed by other users");
  return std::nullopt;
}

// The folder `name` in `parent`, which is closed; -1 with a fault.
int enter(int parent, const Path& name, const Path& whole, std::optional<std::string>& fault) {
  constexpr int kFlags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
  const int descriptor = openat(parent, name.c_str(), kFlags);
  struct stat status{};
  const bool isSeen = descriptor >= 0 && fstat(descriptor, &status) == 0;
  const int error = errno;
  close(parent);
  if (!isSeen) {
    fault = systemFailure(whole, translatable("%@ cannot be opened: %@"), error);
  } else if (S_ISLNK(status.st_mode)) {
    fault = failure(whole, translatable("%@ is a symbolic link"));
  } else if (!S_ISDIR(status.st_mode)) {
    fault = failure(whole, translatable("%@ is no folder"));
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
    fault = systemFailure(whole, translatable("%@ cannot be looked at: %@"), errno);
  } else if (const auto why = judge(status)) {
    fault = failure(whole, *why);
  }
  return !fault;
}

// `isNew` tells whether it has been made.
int openFolder(const Path& path, std::optional<std::string>& fault, bool& isNew) {
  Path reached = path.root_path();
  int folder = open(reached.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) fault = systemFailure(reached, translatable("%@ cannot be opened: %@"), errno);
  for (const Path& name : path.relative_path()) {
    if (folder < 0 || !isFit(folder, reached, fault, faultOfParent)) break;
    reached /= name;
    if (reached == path) isNew = mkdirat(folder, name.c_str(), kOwnerOnlyFolder) == 0;
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

// The files under their temporary names until they have their own; those that they replace have the
// temporary ones then. What is not kept is taken back, and the temporary names go in any case.
class Undertaking {
 public:
  Undertaking(int folder, bool replaces) : folder_(folder), replaces_(replaces) {}
  ~Undertaking() {
    for (const Entry& entry : entries_) {
      if (!isKept_) takeBack(entry);
      unlinkat(folder_, entry.temporary.c_str(), 0);
    }
  }
  Undertaking(const Undertaking&) = delete;
  Undertaking& operator=(const Undertaking&) = delete;

  int add(std::string_view content) {
    entries_.emplace_back().temporary = temporaryName();
    return writeNew(folder_, entries_.back().temporary, content);
  }
  // The file that was added as the `index`th.
  int finish(std::size_t index, const char* name) {
    Entry& entry = entries_[index];
    if (replaces_ && rename(entry.temporary, name, RENAME_EXCHANGE) == 0) {
      entry.exchangedWith = name;
      return isFile(entry.temporary) ? 0 : EEXIST;
    }
    if (replaces_ && errno != ENOENT) return errno;
    if (rename(entry.temporary, name, RENAME_NOREPLACE) != 0) return errno;
    entry.movedTo = name;
    return 0;
  }
  void keep() { isKept_ = true; }

 private:
  struct Entry {
    std::string temporary;
    std::string exchangedWith;  // or empty, as below
    std::string movedTo;
  };

  [[nodiscard]] int rename(const std::string& from, const std::string& to,
                           unsigned int flags) const {
    return renameat2(folder_, from.c_str(), folder_, to.c_str(), flags);
  }
  // Something else may have got the name since that was asked.
  [[nodiscard]] bool isFile(const std::string& name) const {
    struct stat status{};
    return fstatat(folder_, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
           S_ISREG(status.st_mode);
  }
  void takeBack(const Entry& entry) const {
    if (!entry.exchangedWith.empty())
      (void)rename(entry.temporary, entry.exchangedWith, RENAME_EXCHANGE);
    if (!entry.movedTo.empty()) unlinkat(folder_, entry.movedTo.c_str(), 0);
  }

  const int folder_;
  const bool replaces_;
  bool isKept_ = false;
  std::vector<Entry> entries_;
};

}  // namespace

SecretFolder::SecretFolder(const Path& path, std::optional<std::string>& fault)
    : path_(plainPath(path, fault).value_or(path)) {
  if (!fault) descriptor_ = openFolder(path_, fault, isNew_);
}

SecretFolder::~SecretFolder() {
  if (descriptor_ >= 0) close(descriptor_);
  if (isNew_) rmdir(path_.c_str());  // fails when there is something in it
}

std::optional<std::string> SecretFolder::faultOf(const char* name, bool replaces) const {
  struct stat status{};
  if (fstatat(descriptor_, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
    return errno == ENOENT ? std::nullopt
                           : std::optional(systemFailure(
                                 path_ / name, translatable("%@ cannot be seen: %@"), errno));
  if (!replaces) return failure(path_ / name, translatable("%@ is there already"));
  if (!S_ISREG(status.st_mode))
    return failure(path_ / name, translatable("%@ is no file that can be replaced"));
  return std::nullopt;
}

std::optional<std::string> SecretFolder::write(std::span<const File> files, bool replaces) const {
  Undertaking undertaking(descriptor_, replaces);
  const auto fault = [this](const File& file, int error) {
    return systemFailure(path_ / file.name, translatable("%@ cannot be written: %@"), error);
  };
  for (const File& file : files)
    if (const int error = undertaking.add(file.content)) return fault(file, error);
  for (std::size_t i = 0; i < files.size(); ++i)
    if (const int error = undertaking.finish(i, files[i].name)) return fault(files[i], error);
  undertaking.keep();
  return std::nullopt;
}

}  // namespace kvlocal
