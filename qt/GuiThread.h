// From any thread to the GUI thread: to be told of changes, and to have something called there.
#pragma once

#include <local/platform/Mutex.h>

#include <QObject>
#include <atomic>
#include <functional>
#include <memory>
#include <vector>

class QEvent;

namespace kvl::qt {

// Posts an event to an object of the GUI thread that stands for "something has changed"; what, the
// object looks up when it takes the event. However often it is called meanwhile, one event is on
// its way. After the application has begun to end it posts none. Each view has one, and calls it
// from the observers of what it shows.
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

// Calls that wait for the GUI thread. Any thread may hold and use it, also when the
// `GuiCallRunner` that it belongs to is gone.
class GuiCalls {
 public:
  using Call = std::function<void()>;

  // Has `call` called on the GUI thread when the event loop runs again. False when nobody calls it:
  // the runner is gone, or too many calls are waiting already.
  [[nodiscard]] bool handOver(Call call);

 private:
  friend class GuiCallRunner;

  // Null for the end.
  void setRelay(Relay* relay);
  std::vector<Call> takeWaiting();

  Mutex mutex_;
  Relay* relay_ KVL_GUARDED_BY(mutex_) = nullptr;
  std::vector<Call> waiting_ KVL_GUARDED_BY(mutex_);
};

// Lives on the GUI thread and makes the calls that `GuiCalls` takes in.
class GuiCallRunner final : public QObject {
 public:
  GuiCallRunner();
  // What waits is dropped.
  ~GuiCallRunner() override;

  [[nodiscard]] const std::shared_ptr<GuiCalls>& calls() const { return calls_; }

 protected:
  bool event(QEvent* event) override;

 private:
  const std::shared_ptr<GuiCalls> calls_ = std::make_shared<GuiCalls>();
  Relay relay_{*this};
};

}  // namespace kvl::qt
