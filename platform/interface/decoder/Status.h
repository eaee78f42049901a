// How the decoder's processes end of themselves, besides `interface::kOutOfMemory`.
#pragma once

namespace kvl::decoder {

inline constexpr int kLetGo = 0;
inline constexpr int kNoHost = 1;
inline constexpr int kWrongMessage = 2;
// A decoder started a thread when it was loaded.
inline constexpr int kSeveralThreads = 4;
// A worker got less of its parent's filter than it should.
inline constexpr int kNotConfined = 5;

}  // namespace kvl::decoder
