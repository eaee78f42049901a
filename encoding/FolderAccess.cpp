#include "encoding/FolderAccess.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

namespace kvl::encoding {

int openFolder(const char* path) noexcept {
  return open(path, O_PATH | O_DIRECTORY | O_CLOEXEC);
}

// Not every file system can rename without replacing.
int moveWithoutReplacing(int folder, const char* from, const char* to) noexcept {
  if (renameat2(folder, from, folder, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -1;
  if (linkat(folder, from, folder, to, 0) != 0) return -1;
  unlinkat(folder, from, 0);
  return 0;
}

}  // namespace kvl::encoding
