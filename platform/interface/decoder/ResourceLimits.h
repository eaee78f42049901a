// How much of the machine the decoder's processes may take.
#pragma once

#include "platform/interface/protocol/ImageChannel.h"

#include <cstddef>
#include <optional>

namespace kvl::decoder {

// First of all: no file with what the process holds when it dies, and first to go when the machine
// has no memory left.
void expectTheWorst();

// Few descriptors, no files written, no privileges, those of a root's process included. False when
// the system refuses a limit.
[[nodiscard]] bool limitProcess();

// The memory of a worker: what it had when it was forked, what images may take, and what is mapped
// for the host.
class MemoryLimit {
 public:
  // Open before the process is confined.
  [[nodiscard]] static interface::Descriptor openSize();
  // How large the process is by now, in bytes; none when the system does not say.
  [[nodiscard]] static std::optional<std::size_t> sizeNow(const interface::Descriptor& size);

  // Of a process of that size.
  explicit MemoryLimit(std::size_t size) noexcept : size_(size) {}

  // In the worker, once: the most that the limit may ever be, and the processor time of its life.
  void begin() const;
  // The limit while so many bytes are mapped for the host.
  void allow(std::size_t mapped) const;

 private:
  std::size_t size_;
};

}  // namespace kvl::decoder
