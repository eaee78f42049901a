// Which files the decoder's processes may read, by Landlock: fonts and what finds them.
#pragma once

#include <span>

namespace kvl::decoder {

// What drawing text needs. Not the user's own fonts: nothing in the home directory is worth it.
[[nodiscard]] std::span<const char* const> fontFolders();

// The version of the kernel's rules; 0 when it has none, or has them switched off.
[[nodiscard]] unsigned landlockVersion();

// The first version with rules on the network, and the newest whose rules are used.
inline constexpr unsigned kLandlockNetworkVersion = 4;
inline constexpr unsigned kNewestLandlock = 6;

// For good, and the calling thread and whatever it starts: of all files only those below `readable`
// can be opened, to be read; folders that do not exist are passed over. From version 4 on no TCP
// either, from 6 on no signals to other processes and no abstract sockets. Privileges must have
// been given up. False when that failed.
[[nodiscard]] bool restrictFiles(std::span<const char* const> readable, unsigned version);

}  // namespace kvl::decoder
