#include "platform/interface/client/DecoderPool.h"

#include "platform/core/ProcessExit.h"
#include "platform/core/Threads.h"
#include "platform/dispatch/Lanes.h"

#include <local/platform/Log.h>

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
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
    if ((news & lack) != 0) log(text);
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
    if (!site.decoder && !pool_.fill(site, ticket_)) return std::nullopt;
    auto exchange = site.decoder->exchange(request, bytes, limits, nudge_, site.shareEnd,
                                           [this] { return pool_.judge(ticket_); });
    if (isFine(exchange)) return exchange;
    const bool isOver = !mayBeAnothersFault(exchange) || !site.decoder->hasWorkedOnOthers();
    DecoderPool::discard(site);
    if (isOver) return exchange;
  }
}

bool DecoderPool::run(DecoderJob& job) {
  const auto turn = std::make_shared<Turn>(job);
  Turns begun;
  {
    const MutexLock lock(mutex_);
    if (!add(turn, begun)) return false;
  }
  begin(std::move(begun));
  while (true) {
    {
      MutexLock lock(mutex_);
      while (!turn->place && !turn->isLetGo && !isStopped_) turn->changed.wait(lock);
      if (!turn->place) {
        static_cast<void>(schedule_.letGo(turn->ticket));
        turns_.erase(turn->ticket);
        return false;
      }
    }
    const bool isDone = drive(turn);
    begin(release(turn, isDone));
    if (isDone) return true;
  }
}

void DecoderPool::post(std::shared_ptr<DecoderJob> job) {
  const auto turn = std::make_shared<Turn>(*job);
  turn->posted = std::move(job);
  Turns begun;
  {
    const MutexLock lock(mutex_);
    if (!add(turn, begun)) return;
  }
  begin(std::move(begun));
}

bool DecoderPool::add(const TurnPtr& turn, Turns& begun) {
  if (isStopped_) return false;
  const auto& job = turn->job;
  turn->ticket = schedule_.add(job.isSlow(), job.favouredPlace());
  turns_.emplace(turn->ticket, turn);
  grant(begun);
  if (turn->place) return true;
  const auto now = Clock::now();
  for (std::size_t place = 0; place < Schedule::kPlaces; ++place) {
    if (schedule_.isOverdue(place, now)) nudge(place);
  }
  return true;
}

void DecoderPool::grant(Turns& begun) {
  while (!isStopped_) {
    const auto now = Clock::now();
    const auto granted = schedule_.grant(now);
    if (!granted) return;
    auto& nudge = nudges_.at(granted->place);
    if (!nudge) nudge = Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    const auto& turn = turns_.at(granted->ticket);
    turn->place = granted->place;
    turn->nudge = nudge.get();
    sites_.at(granted->place).shareEnd = now + options_.share;
    if (turn->posted) {
      begun.push_back(turn);
    } else {
      turn->changed.notifyOne();
    }
  }
}

void DecoderPool::begin(Turns begun) {
  for (auto& turn : begun) {
    options_.queue->async(
        [self = shared_from_this(), turn = std::move(turn)]() mutable { self->serve(turn); });
  }
}

// Goes on with the next one, which costs no other thread; the handler of the one before, which may
// take its time, gets a thread of its own then.
void DecoderPool::serve(TurnPtr turn) {
  while (turn) {
    const bool isDone = drive(turn);
    auto begun = release(turn, isDone);
    TurnPtr next;
    if (!begun.empty()) {
      next = std::move(begun.back());
      begun.pop_back();
    }
    begin(std::move(begun));
    if (isDone) deliver(turn, next != nullptr);
    turn = std::move(next);
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
  if (elsewhere) return options_.queue->async(std::move(block));
  block();
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

DecoderPool::Turns DecoderPool::release(const TurnPtr& turn, bool isDone) {
  Turns begun;
  {
    const MutexLock lock(mutex_);
    const auto now = Clock::now();
    turn->place.reset();
    if (isDone) {
      if (schedule_.finish(turn->ticket, now)) turn->job.noteSlow();
      turns_.erase(turn->ticket);
    } else {
      schedule_.putOff(turn->ticket);
    }
    lastUse_ = now;
    grant(begun);
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

bool DecoderPool::fill(Site& site, Schedule::Ticket ticket) {
  if (site.ending) {
    static_cast<void>(waitForInput({site.ending.get()}, Clock::now() + kLongestDeath));
    site.ending = {};
  }
  site.decoder = takeDecoder();
  const auto now = Clock::now();
  site.shareEnd = now + options_.share;
  const MutexLock lock(mutex_);
  schedule_.restart(ticket, now);
  return site.decoder != nullptr;
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
    if (!std::exchange(isFailureKnown_, true)) log("no images: no descriptor is left");
    return nullptr;
  }
  DecoderProblem problem;
  auto decoder = askForDecoder(problem);
  // It may have been ended by somebody else since it was used last.
  if (!decoder && wasRunning && !program_) decoder = askForDecoder(problem);
  failed_ = decoder ? std::nullopt : std::optional(Clock::now());
  const bool isKnown = std::exchange(isFailureKnown_, decoder == nullptr);
  if (!decoder && !isKnown) log("no images: %@", problem.text);
  return decoder;
}

std::unique_ptr<Decoder> DecoderPool::askForDecoder(DecoderProblem& problem) {
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
    if (decoder || problem.isTheSystems) return decoder;
  }
  program_.reset();
  isProgramRunning_ = false;
  return nullptr;
}

void DecoderPool::prepare() {
  if (isProgramRunning_) return;
  options_.queue->async([self = shared_from_this()] {
    {
      const MutexLock lock(self->control_);
      if (self->program_) return;
      self->spare_ = self->makeDecoder();
    }
    {
      const MutexLock lock(self->mutex_);
      self->lastUse_ = Clock::now();
    }
    self->watchIdleness();
  });
}

// One timer, however often the decoders are used meanwhile.
void DecoderPool::watchIdleness() {
  {
    const MutexLock lock(mutex_);
    if (isStopped_ || !isProgramRunning_ || std::exchange(isWatched_, true)) return;
  }
  lookLater(options_.idle);
}

void DecoderPool::lookLater(std::chrono::nanoseconds delay) {
  options_.later(delay, [pool = weak_from_this()] {
    if (const auto self = pool.lock()) self->lookWhetherIdle();
  });
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
