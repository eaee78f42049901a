#include "platform/core/LineScan.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#ifdef __x86_64__
#include <immintrin.h>

#include <bit>
#endif

namespace kvl::core {
namespace {

bool isASCII(std::string_view text) {
  constexpr std::uint64_t kHighBits = 0x8080808080808080U;
  std::uint64_t all = 0;
  while (text.size() >= sizeof all) {
    std::uint64_t word = 0;
    std::memcpy(&word, text.data(), sizeof word);
    all |= word;
    text.remove_prefix(sizeof word);
  }
  for (const char byte : text) all |= static_cast<std::uint8_t>(byte);
  return (all & kHighBits) == 0;
}

#ifdef __x86_64__

// 64 bytes of text.
struct Block {
  __m256i low;
  __m256i high;
};
constexpr std::size_t kBlock = sizeof(Block);

[[gnu::target("avx2")]] inline Block load(const char* bytes) {
  const auto* halves = reinterpret_cast<const __m256i*>(bytes);
  return {_mm256_loadu_si256(halves), _mm256_loadu_si256(halves + 1)};
}

[[gnu::target("avx2")]] inline Block lineEnds(const Block& block) {
  const __m256i end = _mm256_set1_epi8('\n');
  return {_mm256_cmpeq_epi8(block.low, end), _mm256_cmpeq_epi8(block.high, end)};
}

[[gnu::target("avx2")]] inline __m256i either(const Block& block) {
  return _mm256_or_si256(block.low, block.high);
}

// The highest bit of each byte.
[[gnu::target("avx2")]] inline std::uint64_t bitsOf(const Block& block) {
  const auto low = static_cast<std::uint32_t>(_mm256_movemask_epi8(block.low));
  const auto high = static_cast<std::uint32_t>(_mm256_movemask_epi8(block.high));
  return low | std::uint64_t{high} << 32;
}

// Skips blocks without a line end behind `scanned` characters, two at a time.
[[gnu::target("avx2")]] inline std::size_t skipBlocks(std::string_view text, std::size_t scanned,
                                                      __m256i& seen) {
  for (; scanned + 2 * kBlock <= text.size(); scanned += 2 * kBlock) {
    const Block first = load(text.data() + scanned);
    const Block second = load(text.data() + scanned + kBlock);
    const Block ends{either(lineEnds(first)), either(lineEnds(second))};
    if (_mm256_movemask_epi8(either(ends)) != 0) break;
    seen = _mm256_or_si256(seen, _mm256_or_si256(either(first), either(second)));
  }
  return scanned;
}

// The line that ends in the block behind `scanned` characters, of which `seen` has the bits.
[[gnu::target("avx2")]] inline ScannedLine lineEndingIn(const Block& block, std::uint64_t ends,
                                                        std::size_t scanned, const __m256i& seen) {
  const std::uint64_t before = (ends - 1) & ~ends;
  const auto length = scanned + static_cast<std::size_t>(std::countr_zero(ends));
  return {length, _mm256_movemask_epi8(seen) == 0 && (bitsOf(block) & before) == 0};
}

// Behind the first block, which has no line end. The others stand where cache lines do: what lies
// across two of them takes twice as long. So the second block comes with characters of the first,
// and the last block with those before it.
[[gnu::target("avx2")]] ScannedLine scanLongLine(std::string_view text, const Block& first) {
  __m256i seen = either(first);
  const std::size_t aligned = kBlock - reinterpret_cast<std::uintptr_t>(text.data()) % kBlock;
  std::size_t scanned = skipBlocks(text, aligned, seen);
  while (scanned < text.size()) {
    scanned = std::min(scanned, text.size() - kBlock);
    const Block block = load(text.data() + scanned);
    if (const std::uint64_t ends = bitsOf(lineEnds(block)))
      return lineEndingIn(block, ends, scanned, seen);
    seen = _mm256_or_si256(seen, either(block));
    scanned += kBlock;
  }
  return {text.size(), _mm256_movemask_epi8(seen) == 0};
}

// Most lines end within the first block.
[[gnu::target("avx2")]] ScannedLine scanLineAVX2(std::string_view text) {
  if (text.size() < kBlock) return scanLinePortably(text);
  const Block block = load(&text.front());
  const std::uint64_t ends = bitsOf(lineEnds(block));
  return ends != 0 ? lineEndingIn(block, ends, 0, _mm256_setzero_si256())
                   : scanLongLine(text, block);
}

#endif

}  // namespace

ScannedLine scanLinePortably(std::string_view text) {
  const auto line = text.substr(0, std::min(text.find('\n'), text.size()));
  return {line.size(), isASCII(line)};
}

LineScan lineScan() noexcept {
#ifdef __x86_64__
  if (__builtin_cpu_supports("avx2") != 0) return scanLineAVX2;
#endif
  return scanLinePortably;
}

}  // namespace kvl::core
