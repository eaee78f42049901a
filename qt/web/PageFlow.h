// An answer on its way from the session's queue to the engine.
#pragma once

#include <local/KVLSession.h>
#include <local/platform/Error.h>
#include <local/platform/Mutex.h>
#include <local/platform/URLSession.h>

#include <QIODevice>
#include <cstddef>
#include <deque>
#include <memory>
#include <optional>

class QEvent;
class QObject;

namespace kvl::qt {

// Any thread, unless said otherwise: the session writes on a queue of its own, the engine reads on
// a thread of its own, and an object of the GUI thread learns what there is to do. More than
// `kMostWaiting` bytes that nobody reads hold the service back.
class PageFlow : public std::enable_shared_from_this<PageFlow> {
 public:
  static constexpr std::size_t kMostWaiting = std::size_t{1} << 20;
  static constexpr std::size_t kFewWaiting = kMostWaiting / 4;

  struct News {
    bool isReady = false;  // the request may be sent
    URLResponseRef head;
    bool isOver = false;
    std::optional<Error> error;
  };

  explicit PageFlow(QObject& listener) : listener_(&listener) {}

  // The listener's thread. It is told nothing more, and the answer ends for the engine with an
  // error.
  void letGo();
  // Whether `event` says that there is news; what comes from now on is told anew.
  [[nodiscard]] bool take(const QEvent& event);
  [[nodiscard]] News news() const;

  void setReady(const std::optional<Error>& error);
  [[nodiscard]] BodyReceiver receiver();
  // Cancelled at once when it has been let go.
  void setTask(const std::shared_ptr<DataTask>& task);

  // As QIODevice wants it: -1 after an error and at the end.
  [[nodiscard]] qint64 read(char* to, qint64 most);
  [[nodiscard]] qint64 available() const;
  [[nodiscard]] bool isAtEnd() const;

 private:
  void tell() KVL_REQUIRES(mutex_);
  void append(const Data& piece);
  void finish(const std::optional<Error>& error);
  // Brings the task to what `holds_` says. Each call of the task ends before the next one begins.
  void applyHold();

  mutable Mutex mutex_;
  QObject* listener_ KVL_GUARDED_BY(mutex_);
  bool isTold_ KVL_GUARDED_BY(mutex_) = false;
  News news_ KVL_GUARDED_BY(mutex_);
  std::deque<Data> waiting_ KVL_GUARDED_BY(mutex_);
  std::size_t waitingBytes_ KVL_GUARDED_BY(mutex_) = 0;
  std::size_t taken_ KVL_GUARDED_BY(mutex_) = 0;  // of the first piece
  bool holds_ KVL_GUARDED_BY(mutex_) = false;
  std::shared_ptr<DataTask> task_ KVL_GUARDED_BY(mutex_);

  Mutex holdMutex_;  // before `mutex_`
  bool isHeld_ KVL_GUARDED_BY(holdMutex_) = false;
};

// What the engine reads. It asks on its own thread and sees the end by `atEnd`.
class PageBody final : public QIODevice {
 public:
  explicit PageBody(std::shared_ptr<PageFlow> flow);

  [[nodiscard]] bool isSequential() const override { return true; }
  [[nodiscard]] bool atEnd() const override { return flow_->isAtEnd(); }
  [[nodiscard]] qint64 bytesAvailable() const override { return flow_->available(); }

 protected:
  qint64 readData(char* to, qint64 most) override { return flow_->read(to, most); }
  qint64 writeData(const char*, qint64) override { return -1; }

 private:
  const std::shared_ptr<PageFlow> flow_;
};

}  // namespace kvl::qt
