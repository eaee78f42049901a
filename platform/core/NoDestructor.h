// Objects of static storage that are never destroyed.
#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace kvl {

// Holds a T that is made with it and never destroyed: threads may use it while the process ends,
// and it depends on no other static object's end. For function-local statics:
//
//   static NoDestructor<std::vector<int>> numbers;
//
// What the T owns stays reachable from static storage, so leak checkers keep quiet about it.
template <class T>
class NoDestructor {
 public:
  template <class... Args>
  explicit NoDestructor(Args&&... args) {
    ::new (static_cast<void*>(storage_)) T(std::forward<Args>(args)...);
  }
  NoDestructor(const NoDestructor&) = delete;
  NoDestructor& operator=(const NoDestructor&) = delete;
  ~NoDestructor() = default;

  [[nodiscard]] T& operator*() noexcept { return *object(); }
  [[nodiscard]] const T& operator*() const noexcept { return *object(); }
  [[nodiscard]] T* operator->() noexcept { return object(); }
  [[nodiscard]] const T* operator->() const noexcept { return object(); }

 private:
  T* object() noexcept { return std::launder(reinterpret_cast<T*>(storage_)); }
  const T* object() const noexcept { return std::launder(reinterpret_cast<const T*>(storage_)); }

  alignas(T) std::byte storage_[sizeof(T)];
};

}  // namespace kvl
