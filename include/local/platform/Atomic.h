/// @file
/// Properties that are read and written whole.
#pragma once

#include <local/platform/Mutex.h>

#include <utility>

namespace kvl {

/// A value that any thread may read and write as a whole. Replaced values are destroyed outside
/// the lock, so that their destructors may do anything.
///
/// A mutex and not `std::atomic<std::shared_ptr>`: the thread sanitizer flags that one under
/// g++ 12.
template <class T>
class Atomic {
 public:
  Atomic() = default;
  /// Begins with `value`.
  explicit Atomic(T value) : value_(std::move(value)) {}
  Atomic(const Atomic&) = delete;
  Atomic& operator=(const Atomic&) = delete;

  /// A copy of the value, made under the lock.
  [[nodiscard]] T get() const {
    MutexLock lock(mutex_);
    return value_;
  }

  /// Stores `value`.
  void set(T value) { exchange(std::move(value)); }

  /// Stores `value` and returns what was stored before.
  T exchange(T value) {
    MutexLock lock(mutex_);
    std::swap(value_, value);
    return value;
  }

 private:
  mutable Mutex mutex_;
  T value_ KVL_GUARDED_BY(mutex_){};
};

}  // namespace kvl
