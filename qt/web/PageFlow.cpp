#include "qt/web/PageFlow.h"

#include <QCoreApplication>
#include <QEvent>
#include <algorithm>
#include <cstring>
#include <utility>

namespace kvl::qt {
namespace {

QEvent::Type newsEvent() {
  static const auto type = static_cast<QEvent::Type>(QEvent::registerEventType());
  return type;
}

}  // namespace

void PageFlow::letGo() {
  std::shared_ptr<DataTask> task;
  {
    const MutexLock lock(mutex_);
    listener_ = nullptr;
    if (!news_.isOver) news_.error = Error(NSURLErrorDomain, NSURLErrorCancelled);
    task = std::exchange(task_, nullptr);
  }
  if (task) task->cancel();
}

bool PageFlow::take(const QEvent& event) {
  const MutexLock lock(mutex_);
  return event.type() == newsEvent() && std::exchange(isTold_, false);
}

PageFlow::News PageFlow::news() const {
  const MutexLock lock(mutex_);
  return news_;
}

void PageFlow::tell() {
  if (listener_ != nullptr && !std::exchange(isTold_, true))
    QCoreApplication::postEvent(listener_, new QEvent(newsEvent()));
}

void PageFlow::setReady(const std::optional<Error>& error) {
  if (error) return finish(error);
  const MutexLock lock(mutex_);
  news_.isReady = true;
  tell();
}

BodyReceiver PageFlow::receiver() {
  const auto self = shared_from_this();
  return {
      [self](const URLResponseRef& head) {
        const MutexLock lock(self->mutex_);
        self->news_.head = head;
        self->tell();
      },
      [self](const Data& piece) { self->append(piece); },
      [self](const URLResponseRef&, const std::optional<Error>& error) { self->finish(error); }};
}

void PageFlow::setTask(const std::shared_ptr<DataTask>& task) {
  bool isLetGo = false;
  {
    const MutexLock lock(mutex_);
    isLetGo = listener_ == nullptr;
    if (!isLetGo && !news_.isOver) task_ = task;
  }
  if (isLetGo && task) task->cancel();
  applyHold();
}

void PageFlow::append(const Data& piece) {
  {
    const MutexLock lock(mutex_);
    if (listener_ == nullptr) return;
    waiting_.push_back(piece);
    waitingBytes_ += piece.size();
    holds_ = holds_ || waitingBytes_ > kMostWaiting;
    tell();
  }
  applyHold();
}

void PageFlow::finish(const std::optional<Error>& error) {
  const MutexLock lock(mutex_);
  task_.reset();
  if (news_.isOver) return;
  news_.isOver = true;
  if (!news_.error) news_.error = error;
  tell();
}

qint64 PageFlow::read(char* to, qint64 most) {
  qint64 count = 0;
  {
    const MutexLock lock(mutex_);
    while (count < most && !waiting_.empty()) {
      const auto rest = waiting_.front().bytes().subspan(taken_);
      const auto part = std::min(rest.size(), static_cast<std::size_t>(most - count));
      std::memcpy(to + count, rest.data(), part);
      count += static_cast<qint64>(part);
      waitingBytes_ -= part;
      taken_ += part;
      if (part == rest.size()) {
        waiting_.pop_front();
        taken_ = 0;
      }
    }
    if (count == 0 && most > 0 && (news_.isOver || news_.error)) return -1;
    if (waitingBytes_ < kFewWaiting) holds_ = false;
  }
  applyHold();
  return count;
}

qint64 PageFlow::available() const {
  const MutexLock lock(mutex_);
  return static_cast<qint64>(waitingBytes_);
}

bool PageFlow::isAtEnd() const {
  const MutexLock lock(mutex_);
  return news_.isOver && !news_.error && waiting_.empty();
}

void PageFlow::applyHold() {
  const MutexLock order(holdMutex_);
  std::shared_ptr<DataTask> task;
  bool holds = false;
  {
    const MutexLock lock(mutex_);
    task = task_;
    holds = holds_;
  }
  if (!task || holds == isHeld_) return;
  isHeld_ = holds;
  if (holds)
    task->suspendDelivery();
  else
    task->resumeDelivery();
}

PageBody::PageBody(std::shared_ptr<PageFlow> flow) : flow_(std::move(flow)) {
  open(QIODevice::ReadOnly | QIODevice::Unbuffered);
}

}  // namespace kvl::qt
