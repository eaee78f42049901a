#include "qt/Relay.h"

#include <QCoreApplication>
#include <QEvent>
#include <mutex>

namespace kvl::qt {
namespace {

// Whether events may be posted: the application takes its dispatcher down without asking whether
// other threads are about to wake it.
class Gate {
 public:
  void open() {
    std::lock_guard lock(mutex_);
    if (open_ || !QCoreApplication::instance()) return;
    open_ = true;
    qAddPostRoutine([] { shared().close(); });
  }
  void post(QObject& receiver, QEvent::Type type) {
    std::lock_guard lock(mutex_);
    if (open_) QCoreApplication::postEvent(&receiver, new QEvent(type));
  }
  // Whoever posts at this moment has done so when this returns, and what was written is seen.
  void wait() { const std::lock_guard lock(mutex_); }

  // Threads may outlast the statics of this library.
  static Gate& shared() {
    static Gate& gate = *new Gate;
    return gate;
  }

 private:
  void close() {
    std::lock_guard lock(mutex_);
    open_ = false;
  }

  std::mutex mutex_;
  bool open_ = false;
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

}  // namespace kvl::qt
