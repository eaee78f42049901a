#include "platform/core/LargeMemory.h"

#include <sys/mman.h>

#include <cstdint>

namespace kvl::core {
namespace {

constexpr std::uintptr_t kLargePage = std::uintptr_t{2} << 20;

}  // namespace

void preferLargePages(void* memory, std::size_t size) noexcept {
  const auto begin = reinterpret_cast<std::uintptr_t>(memory);
  const auto first = (begin + kLargePage - 1) / kLargePage * kLargePage;
  const auto end = (begin + size) / kLargePage * kLargePage;
  if (first >= end) return;
  static_cast<void>(
      madvise(static_cast<char*>(memory) + (first - begin), end - first, MADV_HUGEPAGE));
}

}  // namespace kvl::core
