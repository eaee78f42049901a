// Memory that is wiped before it is given back, for bytes of private keys.
#pragma once

#include <local/platform/Export.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace kvl::security {

// Overwrites the memory in a way that no optimiser removes. Exported for the library's own modules.
KVL_EXPORT void wipe(void* memory, std::size_t size) noexcept;

// Wipes every block before it goes back to `Upstream`, also when a container grows.
template <class T, template <class> class Upstream = std::allocator>
struct WipingAllocator {
  using value_type = T;
  template <class U>
  struct rebind {
    using other = WipingAllocator<U, Upstream>;
  };

  WipingAllocator() noexcept = default;
  template <class U>
  WipingAllocator(const WipingAllocator<U, Upstream>&) noexcept {}

  [[nodiscard]] T* allocate(std::size_t count) { return Upstream<T>().allocate(count); }
  void deallocate(T* memory, std::size_t count) noexcept {
    wipe(memory, count * sizeof(T));
    Upstream<T>().deallocate(memory, count);
  }

  friend bool operator==(WipingAllocator, WipingAllocator) noexcept { return true; }
};

using WipedBytes = std::vector<std::uint8_t, WipingAllocator<std::uint8_t>>;

}  // namespace kvl::security
