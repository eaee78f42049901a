// From whatever thread tells of a change to the thread of those who show it.
#pragma once

#include <atomic>

class QEvent;
class QObject;

namespace kvl::qt {

// Posts an event to an object of the GUI thread that stands for "something has changed"; what, the
// object looks up when it takes the event. However often it is called meanwhile, one event is on
// its way. After the application has begun to end it posts none.
//
// Whoever calls it has to be silent before the object is destroyed: an object that keeps the
// `Observation` ends it first.
class Relay {
 public:
  // GUI thread.
  explicit Relay(QObject& receiver);
  Relay(const Relay&) = delete;
  Relay& operator=(const Relay&) = delete;

  // Any thread.
  void operator()();

  // GUI thread. Whether `event` is one that was posted; what is told from now on posts the next.
  [[nodiscard]] bool take(const QEvent& event);

 private:
  QObject& receiver_;
  std::atomic<bool> posted_{false};
};

}  // namespace kvl::qt
