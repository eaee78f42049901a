#include "platform/interface/client/DecoderPool.h"

#include "platform/core/ProcessExit.h"
#include "platform/core/Threads.h"
#include "platform/dispatch/Lanes.h"

#include <local/platform/Log.h>

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

namespace kvl::interface {
namespace {

using Clock = Schedule::Clock;

// A worker that has been killed gives its memory back first.
constexpr std::chrono::seconds kLongestDeath{2};

struct LackText {
  std::uint32_t lack;
  const char* text;
};
constexpr LackText kLackTexts[] = {
    {kNoLandlock, "images: this system has no Landlock: decoders could read the user's files"},
    {kNoSystemCallFilter,
     "images: this system has no filter for system calls: decoders could use the network and start "
     "programs"},
    {kNoNetworkRules, "images: this system's Landlock has no rules for the network"},
    {kNoLimits, "images: this system sets no limits: decoders could take all memory"}};

// Once a process, however often the program starts.
void logLacks(std::uint32_t lacks) {
  static std::atomic<std::uint32_t> logged = 0;
  if ((lacks & kNoLandlock) != 0) lacks &= ~std::uint32_t{kNoNetworkRules};
  const auto news = lacks & ~logged.fetch_or(lacks);
  for (const auto& [lack, text] : kLackTexts) {
    if ((news & lack) != 0) log(LogCategory::images, LogLevel::warning, text);
  }
}

// Whether the decoder may go on.
bool isFine(const Decoder::Exchange& exchange) {
  if (exchange.end != Decoder::End::kAnswered) return exchange.end == Decoder::End::kNotSent;
  return exchange.answer.outcome != Outcome::kMemory;
}

bool mayBeAnothersFault(const Decoder::Exchange& exchange) {
  using End = Decoder::End;
  return exchange.end == End::kDied || exchange.end == End::kWrong ||
         exchange.end == End::kAnswered;
}

// Whether the thread may be cancelled, which would end it in whatever it waits for or closes, and
// the process with it where that is a destructor.
class CancelState {
 public:
  explicit CancelState(int state) { pthread_setcancelstate(state, &before_); }
  ~CancelState() { pthread_setcancelstate(before_, nullptr); }
  CancelState(const CancelState&) = delete;
  CancelState& operator=(const CancelState&) = delete;
  [[nodiscard]] int before() const noexcept { return before_; }

 private:
  int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace

// What goes wrong at a decoder that has worked on other images may be the fault of one of them. A
// second one has only this image.
std::optional<Decoder::Exchange> DecoderPlace::exchange(const ImageRequest& request, Span bytes,
                                                        const Decoder::Limits& limits) {
  auto& site = pool_.sites_[number_];
  if (site.decoder && (!site.decoder->isUsable() || site.decoder->isSpent(request.image))) {
    DecoderPool::discard(site);
  }
  while (true) {
    const bool isFirst = !std::exchange(hasBegun_, true);
    if (!site.decoder) {
      if (!pool_.fill(site)) return std::nullopt;
      if (isFirst) pool_.renewShare(site, ticket_);
    }
    auto exchange = site.decoder->exchange(request, bytes, limits, nudge_, site.shareEnd,
                                           [this] { return pool_.judge(ticket_); });
    if (isFine(exchange)) return exchange;
    const bool isOver = !mayBeAnothersFault(exchange) || !site.decoder->hasWorkedOnOthers();
    DecoderPool::discard(site);
    if (isOver) return exchange;
  }
}

// Gives back what the turn has, whichever way the thread leaves: a place that stays taken is lost
// for good.
class DecoderPool::Leaving {
 public:
  Leaving(DecoderPool& pool, const TurnPtr& turn) : pool_(pool), turn_(turn) {}
  ~Leaving() { pool_.begin(pool_.release(turn_, true)); }
  Leaving(const Leaving&) = delete;
  Leaving& operator=(const Leaving&) = delete;

 private:
  DecoderPool& pool_;
  const TurnPtr& turn_;
};

bool DecoderPool::run(DecoderJob& job) {
  const CancelState uncancelled(PTHREAD_CANCEL_DISABLE);
  const auto turn = std::make_shared<Turn>(job);
  const Leaving leaving(*this, turn);
  {
    const MutexLock lock(mutex_);
    if (isStopped_) return false;
    static_cast<void>(add(turn));
  }
  while (waitForPlace(*turn, uncancelled.before())) {
    if (drive(turn)) return true;
    begin(release(turn, false));
  }
  return false;
}

bool DecoderPool::waitForPlace(Turn& turn, int cancelState) {
  MutexLock lock(mutex_);
  while (!turn.place && !turn.isLetGo && !isStopped_) {
    const CancelState asBefore(cancelState);
    turn.changed.wait(lock);
  }
  return turn.place.has_value();
}

void DecoderPool::post(std::shared_ptr<DecoderJob> job) {
  const auto turn = std::make_shared<Turn>(*job);
  turn->posted = std::move(job);
  TurnPtr begun;
  {
    const MutexLock lock(mutex_);
    if (isStopped_) return;
    begun = add(turn);
  }
  begin(std::move(begun));
}

DecoderPool::TurnPtr DecoderPool::add(const TurnPtr& turn) {
  const auto& job = turn->job;
  turn->ticket = schedule_.add(job.isSlow(), job.favouredPlace());
  try {
    turns_.emplace(turn->ticket, turn);
  } catch (...) {
    static_cast<void>(schedule_.letGo(turn->ticket));
    throw;
  }
  auto begun = grant();
  if (turn->place) return begun;
  const auto now = Clock::now();
  for (std::size_t place = 0; place < Schedule::kPlaces; ++place) {
    if (schedule_.isOverdue(place, now)) nudge(place);
  }
  return begun;
}

// No place stays free while somebody waits: when one comes or a place becomes free, there is one at
// most that begins.
DecoderPool::TurnPtr DecoderPool::grant() {
  if (isStopped_) return nullptr;
  const auto now = Clock::now();
  const auto granted = schedule_.grant(now);
  if (!granted) return nullptr;
  auto& nudge = nudges_.at(granted->place);
  if (!nudge) nudge = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  const auto& turn = turns_.at(granted->ticket);
  turn->place = granted->place;
  turn->nudge = nudge.get();
  sites_.at(granted->place).shareEnd = now + options_.share;
  if (turn->posted) return turn;
  turn->changed.notifyOne();
  return nullptr;
}

// One that the queue has no memory for is lost.
void DecoderPool::begin(TurnPtr turn) noexcept {
  while (turn) {
    try {
      return options_.queue->async([self = shared_from_this(), turn] { self->serve(turn); });
    } catch (const std::bad_alloc&) {
      turn = release(turn, true);
    }
  }
}

// Goes on with the next one, which costs no other thread; the handler of the one before, which may
// take its time, gets a thread of its own then.
void DecoderPool::serve(TurnPtr turn) {
  while (turn) {
    const bool isDone = driveOrLose(turn);
    auto next = release(turn, isDone);
    if (isDone) deliver(turn, next != nullptr);
    turn = std::move(next);
  }
}

bool DecoderPool::driveOrLose(const TurnPtr& turn) {
  try {
    return drive(turn);
  } catch (const std::exception&) {
    return true;
  }
}

void DecoderPool::deliver(const TurnPtr& turn, bool elsewhere) {
  {
    const MutexLock lock(mutex_);
    if (turn->isLetGo || isStopped_) return;
  }
  auto block = [job = std::exchange(turn->posted, nullptr)] {
    const core::ThreadWork work;
    job->deliver();
  };
  if (!elsewhere) return block();
  try {
    options_.queue->async(std::move(block));
  } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): the next one has its turn
  }
}

bool DecoderPool::drive(const TurnPtr& turn) {
  std::optional<DecoderPlace> place;
  {
    const MutexLock lock(mutex_);
    if (turn->isLetGo || isStopped_) return true;
    place.emplace(*this, *turn->place, turn->ticket, turn->nudge);
  }
  return turn->job.drive(*place);
}

// Also of one that has no place.
DecoderPool::TurnPtr DecoderPool::release(const TurnPtr& turn, bool isDone) noexcept {
  TurnPtr begun;
  {
    const MutexLock lock(mutex_);
    const auto now = Clock::now();
    turn->place.reset();
    if (isDone) {
      if (schedule_.finish(turn->ticket, now)) turn->job.noteSlow();
      static_cast<void>(schedule_.letGo(turn->ticket));
      turns_.erase(turn->ticket);
    } else {
      schedule_.putOff(turn->ticket);
    }
    lastUse_ = now;
    begun = grant();
  }
  watchIdleness();
  return begun;
}

Schedule::Judgement DecoderPool::judge(Schedule::Ticket ticket) {
  const MutexLock lock(mutex_);
  if (isStopped_) return {Schedule::Verdict::kEnd, std::nullopt};
  return schedule_.judge(ticket, Clock::now());
}

void DecoderPool::nudge(std::size_t place) {
  const std::uint64_t one = 1;
  static_cast<void>(!::write(nudges_.at(place).get(), &one, sizeof one));
}

void DecoderPool::letGo(const void* owner) noexcept {
  decltype(turns_) dropped;  // what they hold goes without the lock
  const MutexLock lock(mutex_);
  const auto now = Clock::now();
  for (auto next = turns_.begin(); next != turns_.end();) {
    const auto current = next++;
    auto& turn = *current->second;
    if (turn.job.owner() != owner) continue;
    turn.isLetGo = true;
    turn.changed.notifyOne();
    if (schedule_.letGo(turn.ticket)) {
      dropped.insert(turns_.extract(current));
    } else if (turn.place && schedule_.isOverdue(*turn.place, now)) {
      nudge(*turn.place);
    }
  }
}

void DecoderPool::stop() noexcept {
  const MutexLock lock(mutex_);
  isStopped_ = true;
  for (const auto& [ticket, turn] : turns_) turn->changed.notifyOne();
  for (std::size_t place = 0; place < Schedule::kPlaces; ++place) nudge(place);
}

bool DecoderPool::fill(Site& site) {
  if (site.ending) {
    static_cast<void>(waitForInput({site.ending.get()}, Clock::now() + kLongestDeath));
    site.ending = {};
  }
  site.decoder = takeDecoder();
  return site.decoder != nullptr;
}

// Of a turn whose decoder had to be started, which is not its image's fault.
void DecoderPool::renewShare(Site& site, Schedule::Ticket ticket) {
  const auto now = Clock::now();
  site.shareEnd = now + options_.share;
  const MutexLock lock(mutex_);
  schedule_.restart(ticket, now);
}

void DecoderPool::discard(Site& site) {
  site.ending = site.decoder->releaseProcess();
  site.decoder.reset();
}

std::unique_ptr<Decoder> DecoderPool::takeDecoder() {
  const MutexLock lock(control_);
  auto spare = std::move(spare_);
  if (spare && spare->isUsable()) return spare;
  return makeDecoder();
}

std::unique_ptr<Decoder> DecoderPool::makeDecoder() {
  if (failed_ && Clock::now() - *failed_ < options_.retry) return nullptr;
  const bool wasRunning = program_ != nullptr;
  if (!core::hasSpareDescriptors()) {
    if (!std::exchange(isFailureKnown_, true))
      log(LogCategory::images, LogLevel::error, "no images: no descriptor is left");
    return nullptr;
  }
  DecoderProblem problem;
  auto decoder = askForDecoder(problem);
  // It, or the worker that it bore, may have been ended by somebody else.
  if (!decoder && (problem.isTheWorkers || (wasRunning && !program_))) {
    decoder = askForDecoder(problem);
  }
  failed_ = decoder ? std::nullopt : std::optional(Clock::now());
  const bool isKnown = std::exchange(isFailureKnown_, decoder == nullptr);
  if (!decoder && !isKnown)
    log(LogCategory::images, LogLevel::error, "no images: %@", problem.text);
  return decoder;
}

std::unique_ptr<Decoder> DecoderPool::askForDecoder(DecoderProblem& problem) {
  problem = {};
  if (!program_) {
    const auto& places = options_.places;
    program_ = DecoderProgram::start(places.empty() ? decoderPlaces() : places, problem.text);
    if (!program_) return nullptr;
    isProgramRunning_ = true;
    logLacks(program_->hello().lacks);
  }
  const auto number = ++workers_;
  auto socket = program_->startWorker(number, problem.text);
  if (socket) {
    auto decoder = Decoder::ready(std::move(*socket), number, program_->process(), problem);
    if (decoder || problem.isTheSystems || problem.isTheWorkers) return decoder;
  }
  program_.reset();
  isProgramRunning_ = false;
  return nullptr;
}

// Each block that waits for the program would take a thread.
void DecoderPool::prepare() {
  if (isProgramRunning_ || isPreparing_.exchange(true)) return;
  try {
    options_.queue->async([self = shared_from_this()] { self->prepareNow(); });
  } catch (const std::bad_alloc&) {
    isPreparing_ = false;
  }
}

void DecoderPool::prepareNow() {
  try {
    const MutexLock lock(control_);
    if (!program_) spare_ = makeDecoder();
  } catch (const std::exception&) {  // NOLINT(bugprone-empty-catch): the first image tries again
  }
  isPreparing_ = false;
  {
    const MutexLock lock(mutex_);
    lastUse_ = Clock::now();
  }
  watchIdleness();
}

// One timer, however often the decoders are used meanwhile.
void DecoderPool::watchIdleness() noexcept {
  {
    const MutexLock lock(mutex_);
    if (isStopped_ || !isProgramRunning_ || std::exchange(isWatched_, true)) return;
  }
  lookLater(options_.idle);
}

void DecoderPool::lookLater(std::chrono::nanoseconds delay) noexcept {
  try {
    options_.later(delay, [pool = weak_from_this()] {
      if (const auto self = pool.lock()) self->lookWhetherIdle();
    });
  } catch (const std::bad_alloc&) {
    const MutexLock lock(mutex_);
    isWatched_ = false;  // the next use sees to it
  }
}

void DecoderPool::lookWhetherIdle() {
  auto left = std::chrono::nanoseconds(options_.idle);
  {
    const MutexLock lock(mutex_);
    if (schedule_.isIdle()) left -= Clock::now() - lastUse_;
    isWatched_ = left.count() > 0;
  }
  if (left.count() > 0) return lookLater(left);
  dispatch::laneQueue("local.images")->async([self = shared_from_this()] { self->endProcesses(); });
}

void DecoderPool::endProcesses() {
  std::unique_ptr<DecoderProgram> program;
  std::unique_ptr<Decoder> spare;
  std::array<Site, Schedule::kPlaces> sites;
  std::array<Descriptor, Schedule::kPlaces> nudges;
  const MutexLock control(control_);
  {
    const MutexLock lock(mutex_);
    if (!schedule_.isIdle()) return;
    std::swap(sites, sites_);
    std::swap(nudges, nudges_);
  }
  program = std::move(program_);
  spare = std::move(spare_);
  isProgramRunning_ = false;
}

}  // namespace kvl::interface
