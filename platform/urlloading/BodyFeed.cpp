#include "platform/urlloading/BodyFeed.h"

#include "platform/core/ProcessExit.h"

#include <algorithm>
#include <utility>

namespace kvl::urlloading {
namespace {

constexpr std::size_t kBodyBlock = std::size_t{256} << 10;
constexpr std::size_t kMostBlocks = 2;

}  // namespace

BodyFeed::BodyFeed(std::shared_ptr<BodySource> source, std::function<void()> whenReady)
    : source_(std::move(source)), whenReady_(std::move(whenReady)), length_(source_->length()) {}

BodyFeed::~BodyFeed() = default;

BodyFeed::State BodyFeed::take(std::span<std::uint8_t> room, std::size_t& count) {
  count = 0;
  {
    const MutexLock lock(mutex_);
    begun_ = true;
    if (!blocks_.empty()) {
      const auto& front = blocks_.front();
      count = std::min(room.size(), front.size() - takenOfFront_);
      std::copy_n(front.begin() + static_cast<std::ptrdiff_t>(takenOfFront_), count, room.begin());
      takenOfFront_ += count;
      if (takenOfFront_ == front.size()) {
        blocks_.pop_front();
        takenOfFront_ = 0;
      }
    } else if (failed_ || closed_) {
      return State::failed;
    } else if (ended_ || (length_ == read_ && !rewinding_)) {
      return State::over;
    } else {
      starved_ = true;
    }
  }
  workUnlessWorking();
  return count > 0 ? State::ready : State::starved;
}

bool BodyFeed::hasBegun() const {
  const MutexLock lock(mutex_);
  return begun_;
}

std::optional<Error> BodyFeed::error() const {
  const MutexLock lock(mutex_);
  return error_;
}

void BodyFeed::rewind() {
  {
    const MutexLock lock(mutex_);
    blocks_.clear();
    takenOfFront_ = 0;
    begun_ = ended_ = starved_ = false;
    rewinding_ = true;
  }
  workUnlessWorking();
}

void BodyFeed::close() {
  const MutexLock lock(mutex_);
  closed_ = true;
  blocks_.clear();
}

BodyFeed::Step BodyFeed::nextStep() const {
  if (closed_ || failed_) return Step::none;
  if (rewinding_) return Step::rewind;
  return ended_ || nextSize() == 0 || blocks_.size() >= kMostBlocks ? Step::none : Step::read;
}

std::size_t BodyFeed::nextSize() const {
  return length_ ? static_cast<std::size_t>(std::min<std::uint64_t>(kBodyBlock, *length_ - read_))
                 : kBodyBlock;
}

void BodyFeed::workUnlessWorking() {
  {
    const MutexLock lock(mutex_);
    if (working_ || nextStep() == Step::none) return;
    working_ = true;
  }
  source_->use_->queue->async([self = shared_from_this()] { self->work(); });
}

void BodyFeed::work() {
  for (;;) {
    const core::ThreadWork threadWork;
    if (!workOnce()) return;
    bool wasStarved = false;
    {
      const MutexLock lock(mutex_);
      // A rewound source has nothing yet.
      wasStarved = !rewinding_ && (!blocks_.empty() || ended_ || failed_ || length_ == read_) &&
                   std::exchange(starved_, false);
    }
    if (wasStarved) whenReady_();
  }
}

bool BodyFeed::workOnce() {
  Step step = Step::none;
  std::size_t size = 0;
  {
    const MutexLock lock(mutex_);
    step = nextStep();
    size = nextSize();
    working_ = step != Step::none;
  }
  if (step == Step::none) return false;
  if (!takeSource(step)) {
    const MutexLock lock(mutex_);
    fail(std::nullopt);
    return true;
  }
  step == Step::read ? read(size) : rewindSource();
  return true;
}

bool BodyFeed::takeSource(Step& step) {
  auto& reader = source_->use_->reader;
  if (std::exchange(hasSource_, true)) return reader == this;
  // Another feed has left it somewhere.
  if (std::exchange(reader, this) != nullptr) step = Step::rewind;
  return true;
}

void BodyFeed::read(std::size_t size) {
  std::vector<std::uint8_t> block(size);
  std::optional<Error> error;
  block.resize(std::min(size, source_->read(block, &error)));
  const MutexLock lock(mutex_);
  // What comes after all that `rewind` or `close` did is nothing of theirs.
  if (rewinding_ || closed_) return;
  if (error) return fail(std::move(error));
  read_ += block.size();
  ended_ = block.empty();
  if (ended_ && length_) return fail(std::nullopt);
  if (!ended_) blocks_.push_back(std::move(block));
}

void BodyFeed::rewindSource() {
  const bool hasGoneBack = source_->rewind();
  const MutexLock lock(mutex_);
  rewinding_ = false;
  read_ = 0;
  if (!hasGoneBack) fail(std::nullopt);
}

void BodyFeed::fail(std::optional<Error> error) {
  failed_ = true;
  error_ = std::move(error);
}

}  // namespace kvl::urlloading
