#include "qt/GuiThread.h"

#include "platform/core/NoDestructor.h"

#include <QCoreApplication>
#include <QEvent>
#include <utility>

namespace kvl::qt {
namespace {

// Whether events may be posted: the application takes its dispatcher down without asking whether
// other threads are about to wake it.
class Gate {
 public:
  void open() {
    const MutexLock lock(mutex_);
    if (open_ || !QCoreApplication::instance()) return;
    open_ = true;
    qAddPostRoutine([] { shared().close(); });
  }
  void post(QObject& receiver, QEvent::Type type) {
    const MutexLock lock(mutex_);
    if (open_) QCoreApplication::postEvent(&receiver, new QEvent(type));
  }
  // Whoever posts at this moment has done so when this returns, and what was written is seen.
  void wait() { const MutexLock lock(mutex_); }

  // Threads may outlast the statics of this library.
  static Gate& shared() {
    static NoDestructor<Gate> gate;
    return *gate;
  }

 private:
  void close() {
    const MutexLock lock(mutex_);
    open_ = false;
  }

  Mutex mutex_;
  bool open_ KVL_GUARDED_BY(mutex_) = false;
};

QEvent::Type changeEvent() {
  static const auto type = static_cast<QEvent::Type>(QEvent::registerEventType());
  return type;
}

}  // namespace

Relay::Relay(QObject& receiver) : receiver_(receiver) {
  Gate::shared().open();
}

void Relay::operator()() {
  if (!posted_.exchange(true)) Gate::shared().post(receiver_, changeEvent());
}

bool Relay::take(const QEvent& event) {
  if (!posted_) return false;
  Gate::shared().wait();
  return event.type() == changeEvent() && posted_.exchange(false);
}

bool GuiCalls::handOver(Call call) {
  const MutexLock lock(mutex_);
  if (relay_ == nullptr || waiting_.size() >= most_) return false;
  waiting_.push_back(std::move(call));
  (*relay_)();
  return true;
}

void GuiCalls::setRelay(Relay* relay) {
  const MutexLock lock(mutex_);
  relay_ = relay;
}

std::size_t GuiCalls::count() {
  const MutexLock lock(mutex_);
  return waiting_.size();
}

GuiCalls::Call GuiCalls::takeNext() {
  const MutexLock lock(mutex_);
  if (waiting_.empty()) return nullptr;
  Call next = std::move(waiting_.front());
  waiting_.pop_front();
  // The call may run an event loop of its own, in which the others' turn comes.
  if (!waiting_.empty() && relay_ != nullptr) (*relay_)();
  return next;
}

std::deque<GuiCalls::Call> GuiCalls::takeAll() {
  const MutexLock lock(mutex_);
  return std::exchange(waiting_, {});
}

GuiCallRunner::GuiCallRunner(std::size_t most, QObject* parent)
    : QObject(parent), calls_(std::make_shared<GuiCalls>(most)) {
  calls_->setRelay(&relay_);
}

GuiCallRunner::~GuiCallRunner() {
  calls_->setRelay(nullptr);
  // Destroyed here, with nothing locked: what they hold may do anything as it goes.
  static_cast<void>(calls_->takeAll());
}

bool GuiCallRunner::event(QEvent* event) {
  if (!relay_.take(*event)) return QObject::event(event);
  const auto calls = calls_;  // whichever call destroys this object leaves none behind
  // No more than there are now, so that a call which brings about the next leaves the loop its
  // turn.
  for (auto left = calls->count(); left > 0; --left) {
    if (const auto call = calls->takeNext()) call();
  }
  return true;
}

}  // namespace kvl::qt
