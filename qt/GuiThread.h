// From any thread to the GUI thread: to be told of changes, and to have something called there.
#pragma once

#include <local/platform/Mutex.h>

#include <QObject>
#include <atomic>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>

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

// Calls that wait for the thread of a `GuiCallRunner`. Any thread may hold and use it, also when
// that runner is gone.
class GuiCalls {
 public:
  using Call = std::function<void()>;

  // Far more than a person brings about while the event loop is busy.
  static constexpr std::size_t kUsualMost = 100;

  // At most so many wait.
  explicit GuiCalls(std::size_t most) : most_(most) {}

  // Has `call` called on the runner's thread when its event loop runs again, after those that wait
  // already. False when nobody calls it: the runner is gone, or too many calls are waiting.
  [[nodiscard]] bool handOver(Call call);

 private:
  friend class GuiCallRunner;

  // Null for the end.
  void setRelay(Relay* relay);
  [[nodiscard]] std::size_t count();
  // The next one, empty if there is none. If more wait, an event for them is on its way.
  [[nodiscard]] Call takeNext();
  std::deque<Call> takeAll();

  const std::size_t most_;
  Mutex mutex_;
  Relay* relay_ KVL_GUARDED_BY(mutex_) = nullptr;
  std::deque<Call> waiting_ KVL_GUARDED_BY(mutex_);
};

// Makes the calls that `GuiCalls` takes in, on the thread that it lives on.
class GuiCallRunner : public QObject {
 public:
  explicit GuiCallRunner(std::size_t most = GuiCalls::kUsualMost, QObject* parent = nullptr);
  // What waits is dropped.
  ~GuiCallRunner() override;

  [[nodiscard]] const std::shared_ptr<GuiCalls>& calls() const { return calls_; }

 protected:
  bool event(QEvent* event) override;

 private:
  const std::shared_ptr<GuiCalls> calls_;
  Relay relay_{*this};
};

}  // namespace kvl::qt
