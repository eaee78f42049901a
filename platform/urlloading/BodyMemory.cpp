#include "platform/urlloading/BodyMemory.h"

#include <algorithm>
#include <new>
#include <span>
#include <utility>

namespace kvl::urlloading {

struct BodyMemory::Loan {
  Loan(Bytes body, std::shared_ptr<BodyMemory> owner) noexcept
      : bytes(std::move(body)), home(std::move(owner)) {}
  ~Loan() { home->giveBack(std::move(bytes)); }
  Loan(const Loan&) = delete;
  Loan& operator=(const Loan&) = delete;

  Bytes bytes;
  const std::shared_ptr<BodyMemory> home;
};

Bytes BodyMemory::take(std::size_t size) {
  Bytes block;
  if (size >= kSmallestBlock) {
    const MutexLock lock(mutex_);
    const auto fits = [size](const Bytes& kept) {
      return kept.capacity() >= size && kept.capacity() / 2 <= size;
    };
    if (const auto found = std::ranges::find_if(blocks_, fits); found != blocks_.end()) {
      kept_ -= found->capacity();
      block = std::move(*found);
      blocks_.erase(found);
    }
  }
  block.reserve(size);
  return block;
}

Data BodyMemory::lend(Bytes bytes) {
  if (bytes.capacity() < kSmallestBlock || bytes.capacity() > kMostKept)
    return Data(std::move(bytes));
  auto loan = std::make_shared<Loan>(std::move(bytes), shared_from_this());
  const std::span<const std::uint8_t> view = loan->bytes;
  return {std::move(loan), view};
}

std::size_t BodyMemory::kept() const {
  const MutexLock lock(mutex_);
  return kept_;
}

void BodyMemory::giveBack(Bytes block) noexcept {
  block.clear();
  try {
    const MutexLock lock(mutex_);
    if (block.capacity() > kMostKept - kept_) return;
    blocks_.push_back(std::move(block));
    kept_ += blocks_.back().capacity();
  } catch (const std::bad_alloc&) {
    return;  // then it is not kept
  }
}

}  // namespace kvl::urlloading
