// Equal objects made one.
#pragma once

#include <local/platform/Mutex.h>

#include <map>
#include <memory>
#include <utility>

namespace kvl::security {

// Knows the objects that somebody holds by their names, which are equal when the objects are. A
// name may point into its object. None is held here. Thread-safe; it must outlive the objects
// (`NoDestructor`).
template <class Name, class Object>
class EqualObjects {
 public:
  // The object of that name that somebody holds; `made`, which is not null, when nobody does.
  [[nodiscard]] std::shared_ptr<const Object> unify(const Name& name,
                                                    std::unique_ptr<const Object> made) {
    const auto forgetAndDelete = [this, name](const Object* object) {
      forget(name);
      delete object;
    };
    // Made outside the lock: its end, too, takes the lock.
    std::shared_ptr<const Object> candidate(made.release(), forgetAndDelete);
    const MutexLock lock(mutex_);
    const auto known = objects_.find(name);
    if (known != objects_.end()) {
      if (auto held = known->second.lock()) return held;
      // Its name goes with the object that is about to be deleted.
      objects_.erase(known);
    }
    objects_.emplace(name, candidate);
    return candidate;
  }

  // The object of that name that somebody holds, or null.
  [[nodiscard]] std::shared_ptr<const Object> find(const Name& name) const {
    const MutexLock lock(mutex_);
    const auto entry = objects_.find(name);
    return entry == objects_.end() ? nullptr : entry->second.lock();
  }

 private:
  void forget(const Name& name) {
    const MutexLock lock(mutex_);
    const auto entry = objects_.find(name);
    // An equal object may have come meanwhile.
    if (entry != objects_.end() && entry->second.expired()) objects_.erase(entry);
  }

  mutable Mutex mutex_;
  std::map<Name, std::weak_ptr<const Object>> objects_ KVL_GUARDED_BY(mutex_);
};

}  // namespace kvl::security
