/// @file
/// Mutexes whose rules the compiler checks.
///
/// Clang's thread-safety analysis (https://clang.llvm.org/docs/ThreadSafetyAnalysis.html) knows
/// from these annotations which data a mutex guards and reports, as an error in this project's own
/// build, whoever touches it unlocked. Other compilers see nothing of them.
#pragma once

#include <local/platform/Export.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
/// An attribute of clang's analysis; nothing for other compilers.
#define KVL_THREAD_ANNOTATION(annotation) __attribute__((annotation))
#else
#define KVL_THREAD_ANNOTATION(annotation)
#endif

/// A class whose objects are locked and unlocked.
#define KVL_CAPABILITY(name) KVL_THREAD_ANNOTATION(capability(name))
/// A class whose objects hold a mutex from construction to destruction.
#define KVL_SCOPED_CAPABILITY KVL_THREAD_ANNOTATION(scoped_lockable)
/// A member that is read and written with the mutex held.
#define KVL_GUARDED_BY(mutex) KVL_THREAD_ANNOTATION(guarded_by(mutex))
/// A pointer member; what it points to is read and written with the mutex held.
#define KVL_PT_GUARDED_BY(mutex) KVL_THREAD_ANNOTATION(pt_guarded_by(mutex))
/// A function that is called with the mutexes held.
#define KVL_REQUIRES(...) KVL_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
/// A function that is called with the mutexes not held.
#define KVL_EXCLUDES(...) KVL_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
/// A function that locks, or unlocks.
#define KVL_ACQUIRE(...) KVL_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
/// See `KVL_ACQUIRE`.
#define KVL_RELEASE(...) KVL_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
/// The order in which mutexes are taken by whoever needs both.
#define KVL_ACQUIRED_BEFORE(...) KVL_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
/// See `KVL_ACQUIRED_BEFORE`.
#define KVL_ACQUIRED_AFTER(...) KVL_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
/// A function that returns a reference to the mutex.
#define KVL_RETURN_CAPABILITY(mutex) KVL_THREAD_ANNOTATION(lock_returned(mutex))
/// A function that the analysis cannot follow. Say why beside it.
#define KVL_NO_THREAD_SAFETY_ANALYSIS KVL_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace kvl {

/// A mutex, as `std::mutex`.
class KVL_CAPABILITY("mutex") Mutex {
 public:
  void lock() KVL_ACQUIRE() { mutex_.lock(); }      ///< waits until nobody else holds it
  void unlock() KVL_RELEASE() { mutex_.unlock(); }  ///< @pre held by this thread

 private:
  friend class MutexLock;
  std::mutex mutex_;
};

/// A mutex that the thread which holds it may lock again, as `std::recursive_mutex`.
class KVL_CAPABILITY("mutex") RecursiveMutex {
 public:
  void lock() KVL_ACQUIRE() { mutex_.lock(); }      ///< waits until nobody else holds it
  void unlock() KVL_RELEASE() { mutex_.unlock(); }  ///< @pre held by this thread

 private:
  std::recursive_mutex mutex_;
};

/// Holds a mutex from construction to destruction, except between `unlock` and `lock`.
class KVL_SCOPED_CAPABILITY MutexLock {
 public:
  /// Waits for `mutex`, and holds it.
  explicit MutexLock(Mutex& mutex) KVL_ACQUIRE(mutex) : lock_(mutex.mutex_) {}
  ~MutexLock() KVL_RELEASE() = default;
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

  /// Holds the mutex again. @pre not held here
  void lock() KVL_ACQUIRE() { lock_.lock(); }
  /// Gives the mutex back before the end of the block. @pre held here
  void unlock() KVL_RELEASE() { lock_.unlock(); }

 private:
  friend class Condition;
  std::unique_lock<std::mutex> lock_;
};

/// Holds a recursive mutex from construction to destruction.
class KVL_SCOPED_CAPABILITY RecursiveMutexLock {
 public:
  /// Waits for `mutex`, and holds it once more.
  explicit RecursiveMutexLock(RecursiveMutex& mutex) KVL_ACQUIRE(mutex) : mutex_(mutex) {
    mutex_.lock();
  }
  ~RecursiveMutexLock() KVL_RELEASE() { mutex_.unlock(); }
  RecursiveMutexLock(const RecursiveMutexLock&) = delete;
  RecursiveMutexLock& operator=(const RecursiveMutexLock&) = delete;

 private:
  RecursiveMutex& mutex_;
};

/// A condition variable, as `std::condition_variable`. Wait in a loop that tests the condition: the
/// analysis follows a loop, but not into a predicate.
class Condition {
 public:
  /// Gives the lock back, waits and takes it again. May wake without a reason.
  void wait(MutexLock& lock) { condition_.wait(lock.lock_); }
  /// @return whether it woke before `deadline`
  template <class Clock, class Duration>
  bool waitUntil(MutexLock& lock, const std::chrono::time_point<Clock, Duration>& deadline) {
    return condition_.wait_until(lock.lock_, deadline) == std::cv_status::no_timeout;
  }
  /// Wakes one of those that wait, if there is one.
  void notifyOne() noexcept { condition_.notify_one(); }
  /// Wakes all that wait.
  void notifyAll() noexcept { condition_.notify_all(); }

 private:
  std::condition_variable condition_;
};

}  // namespace kvl
