// How the decoder's processes end of themselves, besides `interface::kOutOfMemory`.
#pragma once

namespace kvl::decoder {

inline constexpr int kLetGo = 0;
inline constexpr int kNoHost = 1;
inline constexpr int kWrongMessage = 2;
// A decoder started a thread when it was loaded.
inline constexpr int kSeveralThreads = 4;

}  // namespace kvl::decoder
