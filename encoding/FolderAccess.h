// Files of one folder, whichever name the folder has by now.
#pragma once

namespace kvl::encoding {

// Negative, with errno, when there is no such folder. The caller closes it.
[[nodiscard]] int openFolder(const char* path) noexcept;

// 0; or -1 with errno, EEXIST when there is a file `to`.
[[nodiscard]] int moveWithoutReplacing(int folder, const char* from, const char* to) noexcept;

}  // namespace kvl::encoding
