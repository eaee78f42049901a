#include "qt/Errands.h"

#include <QPointer>
#include <utility>

namespace kvl::qt {
namespace {

// Far more than a person brings about while the event loop is busy.
constexpr std::size_t kMostWaiting = 100;

}  // namespace

bool Errands::handOver(Errand errand) {
  const std::lock_guard lock(mutex_);
  if (relay_ == nullptr || waiting_.size() >= kMostWaiting) return false;
  waiting_.push_back(std::move(errand));
  (*relay_)();
  return true;
}

ErrandRunner::ErrandRunner() {
  const std::lock_guard lock(errands_->mutex_);
  errands_->relay_ = &relay_;
}

ErrandRunner::~ErrandRunner() {
  {
    const std::lock_guard lock(errands_->mutex_);
    errands_->relay_ = nullptr;
  }
  // Outside the lock: what they hold may do anything as it goes.
  takeWaiting();
}

bool ErrandRunner::event(QEvent* event) {
  if (!relay_.take(*event)) return QObject::event(event);
  const QPointer<ErrandRunner> self(this);
  for (const auto& errand : takeWaiting()) {
    if (!self) break;
    errand();
  }
  return true;
}

std::vector<Errands::Errand> ErrandRunner::takeWaiting() {
  const std::lock_guard lock(errands_->mutex_);
  return std::exchange(errands_->waiting_, {});
}

}  // namespace kvl::qt
