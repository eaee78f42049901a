#include "encoding/FolderAccess.h"

#include <fcntl.h>
#include <unistd.h>

namespace kvl::encoding {
namespace {

// Where nothing opens a folder for searching alone, it must be readable, too.
#ifdef O_SEARCH
constexpr int kAccess = O_SEARCH;
#else
constexpr int kAccess = O_RDONLY;
#endif

}  // namespace

int openFolder(const char* path) noexcept {
  return open(path, kAccess | O_DIRECTORY | O_CLOEXEC);
}

int moveWithoutReplacing(int folder, const char* from, const char* to) noexcept {
  if (linkat(folder, from, folder, to, 0) != 0) return -1;
  unlinkat(folder, from, 0);
  return 0;
}

}  // namespace kvl::encoding
