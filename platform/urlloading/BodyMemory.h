// The memory of bodies that nobody holds any more.
#pragma once

#include <local/platform/Data.h>
#include <local/platform/Mutex.h>

#include <cstddef>
#include <memory>
#include <vector>

namespace kvl::urlloading {

// Keeps some of it for the next bodies: blocks of their size, made and given up for each of them,
// go back to the system and come back page by page. Thread-safe; a body may outlive all else.
class BodyMemory : public std::enable_shared_from_this<BodyMemory> {
 public:
  // Smaller blocks are the allocator's business, larger ones and more of them nobody keeps.
  static constexpr std::size_t kSmallestBlock = std::size_t{32} << 10;
  static constexpr std::size_t kMostKept = std::size_t{1} << 20;

  // No bytes, and room for so many: at most twice as much of what is kept, else new.
  [[nodiscard]] Bytes take(std::size_t size);
  // The bytes of a body, whose memory comes back once nobody holds them.
  [[nodiscard]] Data lend(Bytes bytes);
  // How many bytes are kept.
  [[nodiscard]] std::size_t kept() const;

 private:
  struct Loan;
  void giveBack(Bytes block) noexcept;

  mutable Mutex mutex_;
  std::vector<Bytes> blocks_ KVL_GUARDED_BY(mutex_);
  std::size_t kept_ KVL_GUARDED_BY(mutex_) = 0;  // bytes
};

}  // namespace kvl::urlloading
