// Properties that any thread reads and writes, and that observers follow.
#pragma once

#include "platform/core/Observer.h"

#include <local/platform/Mutex.h>
#include <local/platform/Observation.h>

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace kvl::interface {

// The members of a `State` under one mutex. What is replaced is destroyed, and observers are told,
// with no lock held; they run on the thread that changes.
template <class State>
class Observed {
 public:
  template <class T>
  [[nodiscard]] T get(T State::* property) const {
    MutexLock lock(mutex_);
    return state_.*property;
  }

  // What `reader` returns for the state. It runs under the lock.
  template <class Reader>
  [[nodiscard]] auto read(Reader reader) const {
    MutexLock lock(mutex_);
    return reader(std::as_const(state_));
  }

  template <class T>
  void set(T State::* property, std::type_identity_t<T> value) {
    change([&](State& state) { std::swap(state.*property, value); });
  }

  // Runs `changer` under the lock and tells the observers.
  template <class Changer>
  void change(Changer changer) {
    std::vector<std::shared_ptr<Observer>> told;
    {
      MutexLock lock(mutex_);
      changer(state_);
      told = livingObservers();
    }
    for (const auto& observer : told) observer->tell();
  }

  // The state, for constructors and destructors: no other thread knows the object then, so that no
  // lock is needed.
  [[nodiscard]] State& unshared() noexcept KVL_NO_THREAD_SAFETY_ANALYSIS { return state_; }

  [[nodiscard]] Observation observe(std::function<void()> handler) {
    auto observer = std::make_shared<Observer>(std::move(handler));
    MutexLock lock(mutex_);
    std::erase_if(observers_, [](const auto& other) { return other.expired(); });
    observers_.push_back(observer);
    return Observation(std::move(observer));
  }

 private:
  using Observer = core::Observer<>;

  std::vector<std::shared_ptr<Observer>> livingObservers() const KVL_REQUIRES(mutex_) {
    std::vector<std::shared_ptr<Observer>> living;
    for (const auto& weak : observers_) {
      if (auto observer = weak.lock()) living.push_back(std::move(observer));
    }
    return living;
  }

  mutable Mutex mutex_;
  State state_ KVL_GUARDED_BY(mutex_);
  std::vector<std::weak_ptr<Observer>> observers_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvl::interface
